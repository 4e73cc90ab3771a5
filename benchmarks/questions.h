#pragma once

// The questions that the benchmarks answer, one file each.

class Session;

void askAboutGet(Session& session);       ///< What does a GET cost over a bare round trip?
void askAboutStore(Session& session);     ///< What does a command with one store cost?
void askAboutEvents(Session& session);    ///< What does an event cost, and a stuck subscriber?
void askAboutStart(Session& session);     ///< How long does a start take?
void askAboutMemory(Session& session);    ///< How much memory does a catalogue take?
void askAboutDatagrams(Session& session); ///< How long can one datagram keep the responder busy?
void askAboutFinders(Session& session);   ///< Do the finders stay linear on the worst texts?
void askAboutLog(Session& session);       ///< What does a log line cost that nobody reads?
