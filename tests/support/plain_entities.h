// SPDX-License-Identifier: Apache-2.0
#pragma once

// Entities that only describe themselves, for tests of what never touches their memory.

#include "tessaline/storage/entities.h"

#include <utility>

namespace Tessaline::Testing {

class DescribedVector final : public VectorEntity {
  public:
    explicit DescribedVector(DataTopologyDescriptor topology, std::uint64_t size = 1,
                             const GpuResidentEntity* readiness = nullptr)
        : readiness_(readiness),
          descriptor_(size, std::move(topology), DataTypeDescriptor::real_float(),
                      DataVectorFormat::dense, DataComplexLayout::none) {}

    const VectorDescriptor& descriptor() const override { return descriptor_; }
    const GpuResidentEntity* readiness() const override {
        return readiness_ != nullptr ? readiness_ : VectorEntity::readiness();
    }

  private:
    const GpuResidentEntity* readiness_;
    VectorDescriptor descriptor_;
};

} // namespace Tessaline::Testing
