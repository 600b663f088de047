// Memory for native code: pages are written, then made executable, never both.
#pragma once

#include <memory>
#include <span>
#include <vector>

#include "kestrin/types.h"

namespace native {

// The pages of one piece of code; they end with it.
class code_pages {
public:
    // A copy of the bytes that can run. NULL where the system refuses, or where all code together
    // would have more than MOST_BYTES.
    static std::unique_ptr<code_pages> make(std::span<const UCH> code);
    ~code_pages();
    code_pages(const code_pages &) = delete;
    code_pages &operator=(const code_pages &) = delete;

    const UCH *begin() const { return begin_; }
    ULO size() const { return size_; }

    static constexpr ULO MOST_BYTES = ULO(64) << 20;

private:
    code_pages(UCH *begin, ULO size) : begin_(begin), size_(size) {}
    UCH *begin_;
    ULO size_;
};

} // namespace native
