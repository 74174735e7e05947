// The reports on containers at the end of a debugged run: each container created while recording
// was on (vec_debugEnable() and its counterparts), with the place of its creation and its
// high-water marks.
//
//     hash_report();
//     skiplist_report();
//     vec_report();
//
// They go to the debug output, if there is one.
#ifndef COMMON_TRACE_CONTAINER_REPORT_H
#define COMMON_TRACE_CONTAINER_REPORT_H

// Print the master lists of vectors, with a summary by place, and of hash tables. Print nothing
// when nothing was ever recorded.
void vec_report();
void hash_report();

// Prints the master list of skip lists, with its headings even when no list was recorded.
void skiplist_report();

#endif
