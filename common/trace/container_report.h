// The reports on containers at the end of a debugged run: each container made while recording was
// on (vec_debugEnable() and its like), with the place where it was made and its high-water marks.
//
//     hash_report();
//     skiplist_report();
//     vec_report();
//
// They go to the debug output; nothing is written where there is none.
#ifndef COMMON_TRACE_CONTAINER_REPORT_H
#define COMMON_TRACE_CONTAINER_REPORT_H

// Print the master lists of vectors, with a summary by place, and of hash tables. Nothing when none
// was ever kept.
void vec_report();
void hash_report();

// Prints the master list of skip lists; it has its headings even when no list was recorded.
void skiplist_report();

#endif
