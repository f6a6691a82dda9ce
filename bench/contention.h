// What several processes get done that change one store at the same time.
#pragma once

#include <string>

// For every subject that is measured in contention, and 1, 2, 4, 8 and 16 writers: a store of its
// own below the directory, in which each writer changes a record of its own to another value, again
// and again, for so many seconds and to the end of the change begun by then. The store is asked
// afterwards for the value that each writer changed last. Prints a line for each:
//   SUBJECT WRITERS UPDATES_PER_SECOND P50 P99 MAX JAIN FAILED
// with microseconds from the call to the return, Jain's index of fairness over the writers' numbers
// of updates (1: all the same; 1/WRITERS: one had them all), and the updates that failed. Throws
// when a change that was done is not there. Returns 0.
int measureContention(const std::string& directory, double seconds);
