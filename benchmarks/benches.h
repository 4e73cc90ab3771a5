#pragma once

// The benchmarks and what each answers, one file each.

class Session;

void benchGet(Session& session);       ///< What does a GET cost over a raw round trip?
void benchStore(Session& session);     ///< What does a store cost, and an update of its rows?
void benchEvents(Session& session);    ///< What does an event cost, and a stuck subscriber?
void benchStart(Session& session);     ///< How long does a start take?
void benchMemory(Session& session);    ///< How much memory does a catalogue take?
void benchDatagrams(Session& session); ///< How long can one datagram keep the responder busy?
void benchFinders(Session& session);   ///< Do the finders stay linear on the worst texts?
void benchLog(Session& session);       ///< What does a log line cost that nobody reads?
void benchTables(Session& session);    ///< Do tables stay linear in their rows?
