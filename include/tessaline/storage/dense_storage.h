// SPDX-License-Identifier: Apache-2.0
#pragma once

// The parts from which concrete dense entities are put together: an entity interface and an access
// class over one buffer, or over a pair of them, and the shape of a vector or matrix on top.
// A buffer type offers value_type, data(), data() const and size().

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

/// Raises std::invalid_argument with the class's name and the complaint unless `agree` holds.
TESSALINE_API void check_sizes(bool agree, const char* class_name,
                               const char* complaint = "data size mismatch");

/// Raises std::invalid_argument for elements without memory, which a caller can lend by mistake.
template <typename Buffer>
void check_data(const Buffer& buffer, BufferRole role, const char* class_name) {
    if (buffer.size() != 0 && buffer.data() == nullptr) {
        BufferAccessDetail::fail_without_data(role, class_name);
    }
}

template <typename Interface>
using DescriptorOf = std::remove_cvref_t<decltype(std::declval<const Interface&>().descriptor())>;

template <typename Interface, typename Access, typename Buffer>
class OneBuffer : public Interface, public Access {
    using Descriptor = DescriptorOf<Interface>;

  public:
    using Element = typename Buffer::value_type;

    const Descriptor& descriptor() const override { return descriptor_; }
    StorageAccess buffer_access() override { return StorageAccess::of<Access>(*this); }
    Element* data() override { return data_.data(); }
    const Element* data() const override { return data_.data(); }
    std::uint64_t element_count() const override { return data_.size(); }

  protected:
    OneBuffer(const char* class_name, Descriptor descriptor, Buffer&& data)
        : descriptor_(std::move(descriptor)),
          data_(std::move(data)) {
        check_sizes(data_.size() == DenseStorageDetail::element_count(descriptor_), class_name);
        check_data(std::as_const(data_), BufferRole::data, class_name);
    }

  private:
    Descriptor descriptor_;
    Buffer data_;
};

template <typename Interface, typename Access, typename Buffer>
class TwoBuffers : public Interface, public Access {
    using Descriptor = DescriptorOf<Interface>;

  public:
    using Element = typename Buffer::value_type;

    const Descriptor& descriptor() const override { return descriptor_; }
    StorageAccess buffer_access() override { return StorageAccess::of<Access>(*this); }
    Element* data_real() override { return real_.data(); }
    const Element* data_real() const override { return real_.data(); }
    Element* data_imag() override { return imag_.data(); }
    const Element* data_imag() const override { return imag_.data(); }
    std::uint64_t element_count() const override { return real_.size(); }

  protected:
    template <typename... Complaint>
    TwoBuffers(const char* class_name, Descriptor descriptor, Buffer&& real, Buffer&& imag,
               Complaint... complaint)
        : descriptor_(std::move(descriptor)),
          real_(std::move(real)),
          imag_(std::move(imag)) {
        const std::uint64_t count = DenseStorageDetail::element_count(descriptor_);
        check_sizes(real_.size() == count && imag_.size() == count, class_name, complaint...);
        check_data(std::as_const(real_), BufferRole::real, class_name);
        check_data(std::as_const(imag_), BufferRole::imaginary, class_name);
    }

  private:
    Descriptor descriptor_;
    Buffer real_;
    Buffer imag_;
};

template <typename Base>
class VectorShape : public Base {
  public:
    std::uint64_t size() const override { return this->descriptor().size(); }

  protected:
    using Base::Base;
};

template <typename Base>
class MatrixShape : public Base {
  public:
    std::uint64_t rows() const override { return this->descriptor().rows(); }
    std::uint64_t cols() const override { return this->descriptor().cols(); }
    DataMatrixLayout layout() const override { return this->descriptor().layout(); }

  protected:
    using Base::Base;
};

} // namespace Tessaline::DenseStorageDetail
