// Values that a pass gives to names while it walks functions in functions. A name has one value for
// each function around the place where the walk stands; what is set is logged, so that it can be
// taken back.
#pragma once

#include <cstdint>
#include <vector>

#include "kestrin/types.h"

template <class T> class scoped {
public:
    // A function in the one that is walked: no name has a value in it yet.
    void enter() { functions_.push_back(changes_.size()); }
    // Back to the function around it, whose values stand again.
    void leave()
    {
        undo(functions_.back());
        functions_.pop_back();
    }
    // Takes back all values of this function.
    void clear() { undo(functions_.empty() ? 0 : functions_.back()); }

    // The value in this function, T() if it has none.
    T get(ULO name) const
    {
        return name < entries_.size() && entries_[name].depth == depth() ? entries_[name].value
                                                                         : T();
    }
    void set(ULO name, T value)
    {
        if (name >= entries_.size()) entries_.resize(name + name / 2 + 64);
        changes_.push_back({static_cast<std::uint32_t>(name), entries_[name]});
        entries_[name] = {depth(), value};
    }

    // What has been set so far; undo() takes back all that was set since.
    ULO mark() const { return changes_.size(); }
    void undo(ULO mark)
    {
        for (; changes_.size() > mark; changes_.pop_back())
            entries_[changes_.back().name] = changes_.back().old;
    }
    // The name that the change at a mark gave its value.
    ULO changed(ULO mark) const { return changes_[mark].name; }

private:
    struct entry {
        std::uint32_t depth = 0; // of the function that the value is of; 0: never set
        T value = T();
    };
    struct change {
        std::uint32_t name;
        entry old;
    };
    std::uint32_t depth() const { return static_cast<std::uint32_t>(functions_.size() + 1); }

    std::vector<entry> entries_;
    std::vector<change> changes_;
    std::vector<ULO> functions_; // where the changes of each function begin
};
