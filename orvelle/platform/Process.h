// The running process itself.
#pragma once

namespace orvelle {

/// The process id that the system knows this process by.
int currentProcessID();

}  // namespace orvelle
