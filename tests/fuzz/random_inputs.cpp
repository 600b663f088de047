// Stands in for libFuzzer where that is not linked: a fuzzer becomes a test that tries random
// inputs, the same ones each time. KESTRIN_TEST_COUNT says how many.
#include <cstdint>
#include <cstdlib>
#include <random>
#include <sys/resource.h>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size);

int main()
{
#ifndef __SANITIZE_ADDRESS__
    const rlimit memory = {std::size_t(1) << 31, std::size_t(1) << 31};
    setrlimit(RLIMIT_AS, &memory);
#endif
    const char *asked = getenv("KESTRIN_TEST_COUNT");
    std::mt19937 random(1);
    for (long i = asked == nullptr ? 20000 : atol(asked); i > 0; i--) {
        std::vector<std::uint8_t> bytes(8 + random() % 500);
        for (auto &byte : bytes) byte = static_cast<std::uint8_t>(random());
        LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
    }
    return 0;
}
