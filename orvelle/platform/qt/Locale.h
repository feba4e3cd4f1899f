// The user's locale, for texts but not for numbers.
#pragma once

namespace orvelle {

/// To be called before Qt's application object is made. In a locale that is not UTF-8, as services
/// and containers have it, Qt switches to UTF-8 all the same but puts four lines about it on
/// standard error first. Text here is UTF-8 in any case. Main thread.
void useUtf8();

/// To be called when it has been made. Qt takes the user's locale for the whole process, and with
/// it "1,5" instead of "1.5" in everything that is parsed and printed with the C library. Main
/// thread.
void keepNumbersPlain();

}  // namespace orvelle
