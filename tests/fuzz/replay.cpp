// SPDX-License-Identifier: Apache-2.0
// Runs a fuzz target on the files of a corpus, without a fuzzer.

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

int main(int count, char** arguments) {
    int files = 0;
    for (int index = 1; index < count; ++index) {
        for (const auto& entry : std::filesystem::directory_iterator(arguments[index])) {
            std::ifstream file(entry.path(), std::ios::binary);
            const std::vector<char> content(std::istreambuf_iterator<char>(file), {});
            const std::vector<std::uint8_t> input(content.begin(), content.end());
            LLVMFuzzerTestOneInput(input.data(), input.size());
            ++files;
        }
    }
    std::printf("%d inputs\n", files);
    return files == 0 ? 1 : 0;
}
