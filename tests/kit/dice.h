// What makes random texts: the same ones for the same seed.
#pragma once

#include <random>
#include <string>

namespace kit {

class dice {
protected:
    explicit dice(unsigned seed) : random_(seed) {}

    int below(int n) { return static_cast<int>(random_() % static_cast<unsigned>(n)); }
    bool one_in(int n) { return below(n) == 0; }
    template <class... T> std::string pick(T... of)
    {
        const char *all[] = {of...};
        return all[below(sizeof...(T))];
    }
    template <std::size_t N> std::string pick(const char *const (&of)[N]) { return of[below(N)]; }

private:
    std::mt19937 random_;
};

} // namespace kit
