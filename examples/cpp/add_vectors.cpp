// SPDX-License-Identifier: Apache-2.0

// Adds two vectors from text files as float32 and tells what a call costs:
//
//     add_vectors A.txt B.txt [BITS]
//
// A file holds one real number a line; blank lines and lines that begin with '#' are skipped. The
// sums are written to the file BITS, where one is named, as they lie in memory.

#include "tessaline/tessaline.h"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <exception>
#include <fstream>
#include <limits>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace {

using namespace Tessaline;

std::string_view without_blanks(std::string_view text) {
    constexpr std::string_view blanks = " \t\r\f\v";
    const auto first = text.find_first_not_of(blanks);
    if (first == std::string_view::npos) {
        return {};
    }
    return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

/// Read as double and rounded once more, as NumPy does, so that both programs add the same numbers.
float parse_number(std::string_view text, const std::string& place) {
    double value = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, value);
    if (error != std::errc{} || stop != end ||
        !(std::abs(value) <= double{std::numeric_limits<float>::max()})) {
        throw std::runtime_error(place + ": '" + std::string(text) +
                                 "' is no real number in the range of float32");
    }
    return static_cast<float>(value);
}

std::vector<float> read_numbers(const std::string& path) {
    std::ifstream file(path);
    std::vector<float> numbers;
    std::string line;
    for (int row = 1; std::getline(file, line); ++row) {
        const std::string_view text = without_blanks(line);
        if (!text.empty() && text.front() != '#') {
            numbers.push_back(parse_number(text, path + ":" + std::to_string(row)));
        }
    }
    if (!file.eof()) {
        throw std::runtime_error(path + ": cannot be read");
    }
    return numbers;
}

template <typename Call>
double best_microseconds_per_call(const Call& call) {
    constexpr int batches = 20;
    constexpr int calls = 500;
    double best = std::numeric_limits<double>::infinity();
    for (int batch = 0; batch < batches; ++batch) {
        const auto start = std::chrono::steady_clock::now();
        for (int repetition = 0; repetition < calls; ++repetition) {
            call();
        }
        const std::chrono::duration<double, std::micro> taken =
            std::chrono::steady_clock::now() - start;
        best = std::min(best, taken.count() / calls);
    }
    return best;
}

/// The peak of resident memory in megabytes of 10^6 bytes. The resource usage that the system
/// reports would count the program that started this one as well.
double peak_megabytes() {
    std::ifstream status("/proc/self/status");
    std::string word;
    while (status >> word) {
        if (word == "VmHWM:") {
            double kibibytes = 0;
            status >> kibibytes;
            return kibibytes * 1024 / 1e6;
        }
    }
    throw std::runtime_error("/proc/self/status: no VmHWM");
}

void write_bits(const std::string& path, std::span<const float> values) {
    std::ofstream file(path, std::ios::binary);
    file.write(reinterpret_cast<const char*>(values.data()),
               static_cast<std::streamsize>(values.size_bytes()));
    file.close();
    if (!file) {
        throw std::runtime_error(path + ": cannot be written");
    }
}

void run(std::span<char*> arguments) {
    const std::vector<float> left = read_numbers(arguments[0]);
    const std::vector<float> right = read_numbers(arguments[1]);
    if (left.size() != right.size()) {
        throw std::runtime_error("the lengths differ: " + std::to_string(left.size()) +
                                 " numbers and " + std::to_string(right.size()));
    }

    const Vector a = Vector::host(left);
    const Vector b = Vector::host(right);
    Vector sum = Vector::host_zeros<float>(left.size());

    const TessalineContext context;
    // Three system calls to pin a thread for 36 additions would be most of a call's time.
    CpuRuntimeOptions options;
    options.pinning_policy = CpuPinningPolicy::disabled;
    TessalineExecutor executor(context, BackendExecutor::cpu_only(options));
    const OperationId add = OperationId::parse("tessaline.add@1");
    OperationBindings bindings;
    bindings.bind(input_role(0), a).bind(input_role(1), b).bind(output_role(0), sum);
    executor.execute(add, bindings);

    if (arguments.size() == 3) {
        write_bits(arguments[2], elements<float>(sum));
    }
    const double microseconds =
        best_microseconds_per_call([&] { executor.execute(add, bindings); });
    std::printf("%zu sums, %.2f us a call, peak memory %.1f MB\n", left.size(), microseconds,
                peak_megabytes());
}

} // namespace

int main(int count, char** arguments) {
    if (count != 3 && count != 4) {
        std::fputs("usage: add_vectors A.txt B.txt [BITS]\n", stderr);
        return 2;
    }
    try {
        run(std::span(arguments, static_cast<std::size_t>(count)).subspan(1));
    } catch (const std::exception& error) {
        std::fprintf(stderr, "add_vectors: %s\n", error.what());
        return 1;
    }
    return 0;
}
