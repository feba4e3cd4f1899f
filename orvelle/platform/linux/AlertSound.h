// The sound that calls the user when something failed.
#pragma once

namespace orvelle {

/// Returns at once; the sound comes when it does. Main thread.
///
/// The warning of the desktop's sound theme, played by PipeWire's own player: a process of its own
/// can neither block this program nor hold its streams, and no decoder is needed here. Where player
/// or sound are missing, the terminal's bell. Silent where there is no terminal, either.
void playAlert();

}  // namespace orvelle
