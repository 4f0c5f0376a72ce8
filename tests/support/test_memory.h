// A memory table that counts what goes through it and can fail the N-th
// allocation. One instance at a time (the table's entries are plain
// functions, so the counters are process-wide).
#pragma once

#include <cstddef>

#include "zarn_codec_util.h"

namespace codecutil_test {

class CountingMemory {
public:
    CountingMemory();
    ~CountingMemory();

    CodecUtilMemVtable_t* table() { return &table_; }
    // Fail the allocation with this 1-based index (0: never).
    void fail_at(int n);
    int allocations() const;  // successful malloc/realloc-from-NULL/calloc
    int frees() const;        // free of non-NULL blocks
    int live() const;         // blocks not yet freed

private:
    CodecUtilMemVtable_t table_;
};

}  // namespace codecutil_test
