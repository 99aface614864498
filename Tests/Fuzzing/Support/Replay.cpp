// Runs a harness over inputs that were kept, without a fuzzer: every file that is named, and every file of every
// folder.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <vector>

#include "Harness.h"

namespace {

std::vector<std::filesystem::path> inputsOf(const std::filesystem::path &place, std::size_t every) {
    if (!std::filesystem::is_directory(place)) {
        return {place};
    }
    std::vector<std::filesystem::path> inputs;
    for (const auto &entry : std::filesystem::directory_iterator(place)) {
        inputs.push_back(entry.path());
    }
    std::sort(inputs.begin(), inputs.end());
    std::vector<std::filesystem::path> chosen;
    for (std::size_t i = 0; i < inputs.size(); i += every) {
        chosen.push_back(inputs[i]);
    }
    return chosen;
}

void run(const std::filesystem::path &input) {
    std::ifstream stream(input, std::ios::binary);
    if (!stream) {
        throw std::runtime_error(input.string() + ": it can not be read");
    }
    const std::vector<char> bytes{std::istreambuf_iterator<char>(stream), {}};
    // Told before, because a finding ends the program.
    std::fprintf(stderr, "%s\n", input.c_str());
    LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t *>(bytes.data()), bytes.size());
}

} // namespace

int main(int argc, char **argv) {
    try {
        LLVMFuzzerInitialize(&argc, &argv);
        std::size_t count = 0;
        std::size_t every = 1;
        int first = 1;
        if (argc > 2 && std::string(argv[1]) == "--every") {
            every = std::max<std::size_t>(std::stoul(argv[2]), 1);
            first = 3;
        }
        for (int i = first; i < argc; ++i) {
            for (const std::filesystem::path &input : inputsOf(argv[i], every)) {
                run(input);
                ++count;
            }
        }
        std::printf("%zu inputs, nothing found\n", count);
        return count != 0 ? 0 : 1; // a replay of nothing shows nothing
    } catch (const std::exception &error) {
        std::fprintf(stderr, "%s\n", error.what());
        return 1;
    }
}
