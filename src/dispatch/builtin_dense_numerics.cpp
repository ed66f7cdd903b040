// SPDX-License-Identifier: Apache-2.0
#include "dispatch/dense_numerics_table.h"

#include <algorithm>
#include <stdexcept>
#include <string_view>
#include <utility>

namespace Tessaline::BackendRegistration {

namespace {

const DenseNumericsRow& row_of(const OperationId& id) {
    const auto table = dense_numerics_table();
    const auto row =
        std::ranges::find_if(table, [&id](const auto& candidate) { return *candidate.id == id; });
    if (row == table.end()) {
        throw std::logic_error("builtin_dense_numerics - unsupported built-in operation");
    }
    return *row;
}

/// Writes the parts of one row for one key and profile.
class DenseRecord {
  public:
    DenseRecord(const DenseNumericsRow& row, const BackendRegistryKey& key,
                const DenseNumericsProfile& profile)
        : row_(row),
          key_(key),
          profile_(profile) {
        if (row.accumulation.type != nullptr && holds(row.accumulation.when)) {
            accumulation_ = scalar_metadata(profile.*row.accumulation.type).name;
        }
    }

    std::string algorithm() const { return profile_.*row_.prefix + row_.base; }

    SymbolicExpression cost(const DenseCost& cost) const {
        return cost.formula != nullptr && holds(cost.when) ? cost.formula(key_)
                                                           : SymbolicExpression::constant(0);
    }

    PrecisionMode mode() const {
        return row_.rounds ? profile_.precision_mode : PrecisionMode::exact;
    }

    ReductionOrder order() const { return row_.order.value_or(profile_.reduction_order); }

    const std::optional<std::string>& accumulation() const { return accumulation_; }

    std::vector<AlgorithmParameter> parameters() const {
        std::vector<AlgorithmParameter> parameters;
        for (const DenseParameter& parameter : row_.parameters) {
            parameters.push_back(
                {parameter.name, profile_.*parameter.value, parameter.description});
        }
        return parameters;
    }

    std::vector<std::string> notes(std::initializer_list<DenseNote> notes) const {
        std::vector<std::string> texts;
        for (const DenseNote& note : notes) {
            if (holds(note.when)) {
                texts.push_back(filled(note.text));
            }
        }
        return texts;
    }

  private:
    bool holds(When when) const {
        switch (when) {
        case When::tree_reduction:
            return profile_.tree_reduction;
        case When::no_tree_reduction:
            return !profile_.tree_reduction;
        case When::converting:
            return profile_.precision_mode == PrecisionMode::widened ||
                   profile_.precision_mode == PrecisionMode::mixed;
        case When::always:
            break;
        }
        return true;
    }

    std::string storage() const {
        const auto& operands = key_.inputs().empty() ? key_.outputs() : key_.inputs();
        return scalar_metadata(operands.front().storage).name;
    }

    std::string filled(std::string text) const {
        const auto fill = [&text](std::string_view placeholder, const auto& value) {
            if (const auto at = text.find(placeholder); at != std::string::npos) {
                text.replace(at, placeholder.size(), value());
            }
        };
        fill("{storage}", [this] { return storage(); });
        fill("{accumulation}", [this] { return accumulation_.value(); });
        return text;
    }

    const DenseNumericsRow& row_;
    const BackendRegistryKey& key_;
    const DenseNumericsProfile& profile_;
    std::optional<std::string> accumulation_;
};

} // namespace

ImplementationNumerics builtin_dense_numerics(const BackendRegistryKey& key,
                                              const DenseNumericsProfile& profile) {
    const DenseNumericsRow& row = row_of(key.op());
    const DenseRecord record(row, key, profile);
    return make_numerics(record.algorithm(), row.stability, record.cost(row.work),
                         record.cost(row.auxiliary_space), record.mode(), record.order(),
                         record.accumulation(), record.parameters(),
                         record.notes(row.complexity_notes), record.notes(row.precision_notes),
                         record.notes(row.notes));
}

} // namespace Tessaline::BackendRegistration
