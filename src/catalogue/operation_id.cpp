// SPDX-License-Identifier: Apache-2.0
#include "tessaline/catalogue/operation_id.h"

#include <algorithm>
#include <charconv>
#include <functional>
#include <stdexcept>
#include <utility>

namespace Tessaline {

namespace {

bool is_lower_case_letter(char c) {
    return c >= 'a' && c <= 'z';
}

bool is_identifier_character(char c) {
    return is_lower_case_letter(c) || (c >= '0' && c <= '9') || c == '_';
}

void validate_segment(std::string_view segment) {
    if (segment.empty()) {
        throw std::invalid_argument("OperationId - namespace segments must not be empty");
    }
    bool valid = is_lower_case_letter(segment.front());
    for (const char c : segment.substr(1)) {
        valid = valid && is_identifier_character(c);
    }
    if (!valid) {
        throw std::invalid_argument(
            "OperationId - names must use lower-case ASCII identifier segments");
    }
}

void validate_name(std::string_view name) {
    if (name.empty()) {
        throw std::invalid_argument("OperationId - name must not be empty");
    }
    if (name.find('.') == std::string_view::npos) {
        throw std::invalid_argument("OperationId - name must be namespaced with at least one '.'");
    }
    for (std::size_t begin = 0; begin <= name.size();) {
        const std::size_t end = std::min(name.find('.', begin), name.size());
        validate_segment(name.substr(begin, end - begin));
        begin = end + 1;
    }
}

} // namespace

OperationId::OperationId(std::string name, std::uint32_t major)
    : name_(std::move(name)),
      major_(major) {
    validate_name(name_);
    if (major_ == 0) {
        throw std::invalid_argument("OperationId - major version must be non-zero");
    }
}

OperationId::OperationId(std::string_view name, std::uint32_t major)
    : OperationId(std::string(name), major) {}

OperationId::OperationId(const char* name, std::uint32_t major)
    : OperationId(name == nullptr ? std::string() : std::string(name), major) {}

OperationId OperationId::parse(std::string_view text) {
    const std::size_t at = text.rfind('@');
    if (at == std::string_view::npos || at == 0 || at + 1 == text.size()) {
        throw std::invalid_argument(
            "OperationId::parse - expected canonical identifier 'name@major'");
    }
    const std::string_view digits = text.substr(at + 1);
    std::uint32_t major = 0;
    const auto [end, error] =
        std::from_chars(digits.data(), digits.data() + digits.size(), major, 10);
    if (error != std::errc{} || end != digits.data() + digits.size() || major == 0) {
        throw std::invalid_argument(
            "OperationId::parse - major version must be a non-zero integer");
    }
    return {text.substr(0, at), major};
}

std::string OperationId::canonical() const {
    return name_ + "@" + std::to_string(major_);
}

std::size_t OperationId::Hash::operator()(const OperationId& id) const noexcept {
    // std::hash of a string is the library's byte hash of its characters with seed 0xc70f6907.
    const std::uint64_t h = std::hash<std::string>{}(id.name());
    return (id.major() + h * 64 + 0x9e3779b9U + (h >> 2U)) ^ h;
}

} // namespace Tessaline
