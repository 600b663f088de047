// The lowering: from a region to code, for no processor in particular. The tree's values stand in
// registers, variables in registers or in the records of their frame.
#pragma once

#include <memory>
#include <vector>

#include "native/helpers.h"
#include "native/region.h"

namespace native {

// From here on the code does the work of a node; NULL: none of it.
struct code_mark {
    ULO offset;
    const ULO *node;
    SLO depth; // as in native_place
};

// The code of a region. The way in takes dat_ptr and the result record of the region's node and
// returns 1; or 0 with nothing done, where the variables hold other types.
struct lowered {
    std::vector<UCH> code;
    ULO handler = 0; // offset of a handler for the node: the code, or the handler of before
    ULO resume = 0;  // of the way in; of a FOR: at a round that has begun
    ULO direct = 0;  // of a function that takes numbers in registers
    std::vector<std::unique_ptr<exit_path>> exits; // the code refers to them
    std::vector<code_mark> marks;                  // of a watched run, in the order of the code
};

lowered lower(region *r);

} // namespace native
