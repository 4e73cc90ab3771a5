#pragma once

// Why a daemon may have refused what a verb asked for, and what to type next. One thread.

#include "CommandLine.h"

/// The failure of a request that was answered with the code.
Failure refusal(Fcodes code);

/// Adds the likely cause, from the verb, its arguments and the code, where none is known, and what
/// to type next where the failure does not say.
void explain(Failure& failure, const Invocation& call);
