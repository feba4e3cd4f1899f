// The questions of the report, by subject. None of them changes a volume, a rate or the default
// output, and everything that they make is private to this program and ends with it.
#pragma once

#include "instruments/macos/Report.h"

namespace report {

/// Which system this is; sizes and codes in its headers.
void askSystem(Report& report);
/// What processes and sockets do that the guardian relies on.
void askProcesses(Report& report);
/// Properties of the devices that are there, and how errors are told.
void askDevices(Report& report);
/// Who calls listeners, and when.
void askListeners(Report& report);
/// What becomes of a fresh aggregate, and of callbacks on it.
void askAggregates(Report& report);
/// Process taps, on this process itself, and the permission for them.
void askTaps(Report& report);
/// Whether what a process has made ends with it when it is killed. Starts this program once more.
void askDeath(Report& report);
/// What the one that is killed does: taps its parent and waits. Its exit status.
int holdTap();
/// Whether the loopback device can be read, which takes the permission for microphones.
void askLoopback(Report& report);
/// Waits for the user to restart the audio server, and tells what arrives in which order.
void watchRestart(Report& report);

}  // namespace report
