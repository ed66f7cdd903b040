// SPDX-License-Identifier: Apache-2.0
#pragma once

// Typed access to dense operand memory, one abstract class per shape and complex representation.
// Concrete storage mixes one of these in beside its entity interface; kernel steps cast to it.

#include "tessaline/catalogue/data_layout.h"
#include "tessaline/storage/buffer_access.h"

namespace Tessaline {

namespace DenseAccessDetail {

/// Raises std::out_of_range unless index < count.
TESSALINE_API void check_buffer_index(std::size_t index, std::size_t count);

/// Access to one buffer of role R.
template <BufferElement T, BufferRole R>
class TESSALINE_API SingleBufferAccess : public ErasedBufferAccess {
  public:
    std::size_t buffer_count() const override { return 1; }
    MutableBufferView buffer(std::size_t index) override { return view_of(*this, index); }
    ConstBufferView buffer(std::size_t index) const override { return view_of(*this, index); }

    virtual T* data() = 0;
    virtual const T* data() const = 0;
    virtual std::uint64_t element_count() const = 0;

  protected:
    template <typename Self>
    static auto view_of(Self& self, std::size_t index) {
        check_buffer_index(index, 1);
        return make_buffer_view(R, self.data(), self.element_count());
    }
};

/// Access to a buffer of real parts and one of imaginary parts.
template <BufferElement T>
class TESSALINE_API SplitBufferAccess : public ErasedBufferAccess {
  public:
    std::size_t buffer_count() const override { return 2; }
    MutableBufferView buffer(std::size_t index) override { return view_of(*this, index); }
    ConstBufferView buffer(std::size_t index) const override { return view_of(*this, index); }

    virtual T* data_real() = 0;
    virtual const T* data_real() const = 0;
    virtual T* data_imag() = 0;
    virtual const T* data_imag() const = 0;
    /// Of each of the two buffers.
    virtual std::uint64_t element_count() const = 0;

  protected:
    template <typename Self>
    static auto view_of(Self& self, std::size_t index) {
        check_buffer_index(index, 2);
        const std::uint64_t count = self.element_count();
        return index == 0 ? make_buffer_view(BufferRole::real, self.data_real(), count)
                          : make_buffer_view(BufferRole::imaginary, self.data_imag(), count);
    }
};

} // namespace DenseAccessDetail

/// Shape of a dense matrix.
class TESSALINE_API DenseMatrixAccessBase {
  public:
    virtual ~DenseMatrixAccessBase();

    virtual std::uint64_t rows() const = 0;
    virtual std::uint64_t cols() const = 0;
    virtual DataMatrixLayout layout() const = 0;

  protected:
    DenseMatrixAccessBase() = default;
    DenseMatrixAccessBase(const DenseMatrixAccessBase&) = default;
    DenseMatrixAccessBase& operator=(const DenseMatrixAccessBase&) = default;
};

template <BufferElement T>
class TESSALINE_API DenseRealScalarAccess
    : public DenseAccessDetail::SingleBufferAccess<T, BufferRole::data> {};

template <BufferElement T>
class TESSALINE_API DenseRealVectorAccess
    : public DenseAccessDetail::SingleBufferAccess<T, BufferRole::data> {
  public:
    virtual std::uint64_t size() const = 0;
};

template <BufferElement T>
class TESSALINE_API DenseRealMatrixAccess
    : public DenseAccessDetail::SingleBufferAccess<T, BufferRole::data>,
      public DenseMatrixAccessBase {};

template <BufferElement T>
class TESSALINE_API DenseComplexInterleavedVectorAccess
    : public DenseAccessDetail::SingleBufferAccess<T, BufferRole::data> {
  public:
    virtual std::uint64_t size() const = 0;
};

template <BufferElement T>
class TESSALINE_API DenseComplexInterleavedMatrixAccess
    : public DenseAccessDetail::SingleBufferAccess<T, BufferRole::data>,
      public DenseMatrixAccessBase {};

template <BufferElement T>
class TESSALINE_API DenseComplexSplitScalarAccess : public DenseAccessDetail::SplitBufferAccess<T> {
};

template <BufferElement T>
class TESSALINE_API DenseComplexSplitVectorAccess : public DenseAccessDetail::SplitBufferAccess<T> {
  public:
    virtual std::uint64_t size() const = 0;
};

template <BufferElement T>
class TESSALINE_API DenseComplexSplitMatrixAccess : public DenseAccessDetail::SplitBufferAccess<T>,
                                                    public DenseMatrixAccessBase {};

} // namespace Tessaline
