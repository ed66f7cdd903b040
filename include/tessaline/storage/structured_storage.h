// SPDX-License-Identifier: Apache-2.0
#pragma once

// The parts from which concrete LU decompositions and eigenvalue sets are put together: the
// buffers of one, whatever owns their memory, behind the entity interface. Name is that of the
// class in messages. The constructors take the buffers over and raise std::invalid_argument when
// their sizes are not the descriptor's order and its square.

#include "tessaline/storage/dense_storage.h"

namespace Tessaline::DenseStorageDetail {

template <const char* Name, typename PivotBuffer, typename FactorBuffer>
class LuDecompBuffers : public LuDecompEntity {
    using Pivot = typename PivotBuffer::value_type;
    using Element = typename FactorBuffer::value_type;

  public:
    const LuDecompDescriptor& descriptor() const override { return descriptor_; }
    std::size_t buffer_count() const override { return 3; }
    MutableBufferView buffer(std::size_t index) override { return view_of(*this, index); }
    ConstBufferView buffer(std::size_t index) const override { return view_of(*this, index); }

    Pivot* pivots() { return pivots_.data(); }
    const Pivot* pivots() const { return pivots_.data(); }
    Element* factors() { return factors_.data(); }
    const Element* factors() const { return factors_.data(); }
    /// One number.
    std::uint64_t* swap_count() { return &swap_count_; }
    const std::uint64_t* swap_count() const { return &swap_count_; }
    /// The order of the matrix.
    std::uint64_t size() const { return descriptor_.size(); }
    DataMatrixLayout layout() const { return descriptor_.layout(); }

    LuDecompBuffers(LuDecompDescriptor descriptor, PivotBuffer pivots, FactorBuffer factors)
        : descriptor_(std::move(descriptor)),
          pivots_(std::move(pivots)),
          factors_(std::move(factors)) {
        check_sizes(pivots_.size() == size() &&
                        factors_.size() == checked_element_count(size(), size()),
                    Name);
    }

  private:
    template <typename Self>
    static auto view_of(Self& self, std::size_t index) {
        DenseAccessDetail::check_buffer_index(index, 3);
        switch (index) {
        case 0:
            return make_buffer_view(BufferRole::lu_pivots, self.pivots(), self.pivots_.size());
        case 1:
            return make_buffer_view(BufferRole::lu_factors, self.factors(), self.factors_.size());
        default:
            return make_buffer_view(BufferRole::lu_swap_count, self.swap_count(), 1);
        }
    }

    LuDecompDescriptor descriptor_;
    PivotBuffer pivots_;
    FactorBuffer factors_;
    std::uint64_t swap_count_ = 0;
};

template <const char* Name, typename Buffer>
class EigenValsBuffers : public EigenValsEntity {
    using Element = typename Buffer::value_type;

  public:
    const EigenValsDescriptor& descriptor() const override { return descriptor_; }
    std::size_t buffer_count() const override { return 2; }
    MutableBufferView buffer(std::size_t index) override { return view_of(*this, index); }
    ConstBufferView buffer(std::size_t index) const override { return view_of(*this, index); }

    Element* eigenvalues() { return values_.data(); }
    const Element* eigenvalues() const { return values_.data(); }
    Element* eigenvectors() { return vectors_.data(); }
    const Element* eigenvectors() const { return vectors_.data(); }
    /// The order of the matrix.
    std::uint64_t size() const { return descriptor_.size(); }
    /// Of the eigenvectors.
    DataMatrixLayout layout() const { return descriptor_.vector_layout(); }

    EigenValsBuffers(EigenValsDescriptor descriptor, Buffer values, Buffer vectors)
        : descriptor_(std::move(descriptor)),
          values_(std::move(values)),
          vectors_(std::move(vectors)) {
        check_sizes(values_.size() == size() &&
                        vectors_.size() == checked_element_count(size(), size()),
                    Name);
    }

  private:
    template <typename Self>
    static auto view_of(Self& self, std::size_t index) {
        DenseAccessDetail::check_buffer_index(index, 2);
        return index == 0 ? make_buffer_view(BufferRole::eigenvalues, self.eigenvalues(),
                                             self.values_.size())
                          : make_buffer_view(BufferRole::eigenvectors, self.eigenvectors(),
                                             self.vectors_.size());
    }

    EigenValsDescriptor descriptor_;
    Buffer values_;
    Buffer vectors_;
};

} // namespace Tessaline::DenseStorageDetail
