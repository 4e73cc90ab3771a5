#pragma once

// Starts a configuration on probation: unless that is confirmed in time, the one that ran before is
// started again. Both are done by a process of its own session, which outlives the terminal and the
// client, waits for a daemon that starts anew, and ends with the confirmation, the way back, or the
// system. It says in the system's log what it has done. One thread.

#include "Confirmation.h"
#include "Deadline.h"

/// Returns when the start has been answered; throws Failure as START_CFG does, and when `deadline`
/// is over. While the outcome is unknown the guardian stays, for all that. `start.deadline` is not
/// read: the time to confirm, in seconds, runs from the answer.
void startGuarded(const GuardedStart& start, int seconds, const Deadline& deadline,
                  const char* waitsFor);
