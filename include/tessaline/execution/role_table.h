// SPDX-License-Identifier: Apache-2.0
#pragma once

// A small map keyed by operand role. Operations have a handful of operands, so a flat list with a
// linear search beats hashing, and a whole table costs one allocation.

#include "tessaline/catalogue/operand.h"

#include <algorithm>
#include <stdexcept>
#include <utility>
#include <vector>

namespace Tessaline {

/// Each role appears at most once; iteration is in order of insertion.
template <typename Value>
class RoleTable {
  public:
    using Entry = std::pair<OperandRole, Value>;

    std::size_t size() const { return entries_.size(); }
    bool empty() const { return entries_.empty(); }
    auto begin() const { return entries_.begin(); }
    auto end() const { return entries_.end(); }
    auto begin() { return entries_.begin(); }
    auto end() { return entries_.end(); }
    void reserve(std::size_t count) { entries_.reserve(count); }
    void clear() { entries_.clear(); }

    /// Null for an unknown role.
    const Value* find(OperandRole role) const {
        const auto entry = std::ranges::find(entries_, role, &Entry::first);
        return entry == entries_.end() ? nullptr : &entry->second;
    }
    Value* find(OperandRole role) { return const_cast<Value*>(std::as_const(*this).find(role)); }
    bool contains(OperandRole role) const { return find(role) != nullptr; }

    /// Raises std::out_of_range for an unknown role, in the words of the standard map.
    const Value& at(OperandRole role) const {
        const Value* value = find(role);
        if (value == nullptr) {
            throw std::out_of_range("unordered_map::at");
        }
        return *value;
    }
    Value& at(OperandRole role) { return const_cast<Value&>(std::as_const(*this).at(role)); }

    /// False, with nothing changed, when the role is present.
    bool insert(OperandRole role, Value value) {
        if (contains(role)) {
            return false;
        }
        entries_.emplace_back(role, std::move(value));
        return true;
    }
    void insert_or_assign(OperandRole role, Value value) {
        if (Value* present = find(role)) {
            *present = std::move(value);
        } else {
            entries_.emplace_back(role, std::move(value));
        }
    }
    void erase(OperandRole role) {
        std::erase_if(entries_, [role](const Entry& entry) { return entry.first == role; });
    }

  private:
    std::vector<Entry> entries_;
};

} // namespace Tessaline
