// SPDX-License-Identifier: Apache-2.0
#pragma once

// What concrete dense entities are made of: DenseStorage puts an entity interface and an access
// class over one buffer, or over a pair of them, with the shape of a vector or matrix on top. Name
// is that of the class in messages. A buffer type offers value_type, data(), data() const and
// size(); the constructors take buffers over and raise std::invalid_argument when their sizes are
// not those of the descriptor or memory is missing.

#include "tessaline/storage/dense_access.h"
#include "tessaline/storage/element_count.h"
#include "tessaline/storage/entities.h"

#include <utility>

namespace Tessaline::DenseStorageDetail {

inline std::uint64_t element_count(const ScalarDescriptor&) {
    return 1;
}
inline std::uint64_t element_count(const VectorDescriptor& descriptor) {
    return descriptor.size();
}
inline std::uint64_t element_count(const MatrixDescriptor& descriptor) {
    return checked_element_count(descriptor.rows(), descriptor.cols());
}

inline constexpr const char* size_mismatch = "data size mismatch";

/// Raises std::invalid_argument with the class's name and the complaint unless `agree` holds.
TESSALINE_API void check_sizes(bool agree, const char* class_name,
                               const char* complaint = size_mismatch);

/// Raises std::invalid_argument for elements without memory, which a caller can lend by mistake.
template <typename Buffer>
void check_data(const Buffer& buffer, BufferRole role, const char* class_name) {
    if (buffer.size() != 0 && buffer.data() == nullptr) {
        BufferAccessDetail::fail_without_data(role, class_name);
    }
}

template <typename Interface>
using DescriptorOf = std::remove_cvref_t<decltype(std::declval<const Interface&>().descriptor())>;

template <const char* Name, typename Interface, typename Access, typename Buffer>
class OneBuffer : public Interface, public Access {
    using Descriptor = DescriptorOf<Interface>;

  public:
    using Element = typename Buffer::value_type;

    OneBuffer(Descriptor descriptor, Buffer data)
        : descriptor_(std::move(descriptor)),
          data_(std::move(data)) {
        check_sizes(data_.size() == DenseStorageDetail::element_count(descriptor_), Name);
        check_data(std::as_const(data_), BufferRole::data, Name);
    }

    const Descriptor& descriptor() const final { return descriptor_; }
    StorageAccess buffer_access() final { return StorageAccess::of<Access>(*this); }
    Element* data() final { return data_.data(); }
    const Element* data() const final { return data_.data(); }
    std::uint64_t element_count() const final { return data_.size(); }
    MutableBufferView buffer(std::size_t index) final { return Access::view_of(*this, index); }
    ConstBufferView buffer(std::size_t index) const final { return Access::view_of(*this, index); }

  private:
    Descriptor descriptor_;
    Buffer data_;
};

template <const char* Name, typename Interface, typename Access, typename Buffer>
class TwoBuffers : public Interface, public Access {
    using Descriptor = DescriptorOf<Interface>;

  public:
    using Element = typename Buffer::value_type;

    TwoBuffers(Descriptor descriptor, Buffer real, Buffer imag)
        : descriptor_(std::move(descriptor)),
          real_(std::move(real)),
          imag_(std::move(imag)) {
        const std::uint64_t count = DenseStorageDetail::element_count(descriptor_);
        check_sizes(real_.size() == count && imag_.size() == count, Name,
                    std::is_same_v<Descriptor, VectorDescriptor> ? "real and imag sizes don't match"
                                                                 : size_mismatch);
        check_data(std::as_const(real_), BufferRole::real, Name);
        check_data(std::as_const(imag_), BufferRole::imaginary, Name);
    }

    const Descriptor& descriptor() const final { return descriptor_; }
    StorageAccess buffer_access() final { return StorageAccess::of<Access>(*this); }
    Element* data_real() final { return real_.data(); }
    const Element* data_real() const final { return real_.data(); }
    Element* data_imag() final { return imag_.data(); }
    const Element* data_imag() const final { return imag_.data(); }
    std::uint64_t element_count() const final { return real_.size(); }
    MutableBufferView buffer(std::size_t index) final { return Access::view_of(*this, index); }
    ConstBufferView buffer(std::size_t index) const final { return Access::view_of(*this, index); }

  private:
    Descriptor descriptor_;
    Buffer real_;
    Buffer imag_;
};

template <typename Base>
class VectorShape : public Base {
  public:
    using Base::Base;

    std::uint64_t size() const final { return this->descriptor().size(); }
};

template <typename Base>
class MatrixShape : public Base {
  public:
    using Base::Base;

    std::uint64_t rows() const final { return this->descriptor().rows(); }
    std::uint64_t cols() const final { return this->descriptor().cols(); }
    DataMatrixLayout layout() const final { return this->descriptor().layout(); }
};

template <typename Access>
concept TellsSize = requires(const Access& access) {
    access.size();
};
template <typename Access>
concept IsSplit = requires(Access& access) {
    access.data_real();
};

template <typename Access, typename Base>
using WithShape =
    std::conditional_t<std::is_base_of_v<DenseMatrixAccessBase, Access>, MatrixShape<Base>,
                       std::conditional_t<TellsSize<Access>, VectorShape<Base>, Base>>;

template <const char* Name, typename Interface, typename Access, typename Buffer>
using DenseStorage =
    WithShape<Access,
              std::conditional_t<IsSplit<Access>, TwoBuffers<Name, Interface, Access, Buffer>,
                                 OneBuffer<Name, Interface, Access, Buffer>>>;

} // namespace Tessaline::DenseStorageDetail
