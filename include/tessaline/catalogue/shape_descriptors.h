// SPDX-License-Identifier: Apache-2.0
#pragma once

// What an operand is, by kind: type, placement, shape and layout. These are plain values whose
// constructors check nothing; operations and storage factories do.

#include "tessaline/catalogue/data_layout.h"
#include "tessaline/catalogue/data_topology_descriptor.h"
#include "tessaline/catalogue/data_type_descriptor.h"

#include <utility>

namespace Tessaline {

class ScalarDescriptor {
  public:
    ScalarDescriptor(DataTopologyDescriptor topology, DataTypeDescriptor type)
        : topology_(std::move(topology)),
          type_(type) {}

    const DataTopologyDescriptor& topology() const { return topology_; }
    const DataTypeDescriptor& type() const { return type_; }

  private:
    DataTopologyDescriptor topology_;
    DataTypeDescriptor type_;
};

class VectorDescriptor {
  public:
    VectorDescriptor(std::uint64_t size, DataTopologyDescriptor topology, DataTypeDescriptor type,
                     DataVectorFormat format, DataComplexLayout complex_layout)
        : size_(size),
          topology_(std::move(topology)),
          type_(type),
          format_(format),
          complex_layout_(complex_layout) {}

    std::uint64_t size() const { return size_; }
    const DataTopologyDescriptor& topology() const { return topology_; }
    const DataTypeDescriptor& type() const { return type_; }
    DataVectorFormat format() const { return format_; }
    DataComplexLayout complex_layout() const { return complex_layout_; }

  private:
    std::uint64_t size_;
    DataTopologyDescriptor topology_;
    DataTypeDescriptor type_;
    DataVectorFormat format_;
    DataComplexLayout complex_layout_;
};

class MatrixDescriptor {
  public:
    MatrixDescriptor(std::uint64_t rows, std::uint64_t cols, DataTopologyDescriptor topology,
                     DataTypeDescriptor type, DataMatrixFormat format, DataMatrixLayout layout,
                     DataComplexLayout complex_layout)
        : rows_(rows),
          cols_(cols),
          topology_(std::move(topology)),
          type_(type),
          format_(format),
          layout_(layout),
          complex_layout_(complex_layout) {}

    std::uint64_t rows() const { return rows_; }
    std::uint64_t cols() const { return cols_; }
    const DataTopologyDescriptor& topology() const { return topology_; }
    const DataTypeDescriptor& type() const { return type_; }
    DataMatrixFormat format() const { return format_; }
    DataMatrixLayout layout() const { return layout_; }
    DataComplexLayout complex_layout() const { return complex_layout_; }

  private:
    std::uint64_t rows_;
    std::uint64_t cols_;
    DataTopologyDescriptor topology_;
    DataTypeDescriptor type_;
    DataMatrixFormat format_;
    DataMatrixLayout layout_;
    DataComplexLayout complex_layout_;
};

/// LU factors and pivots of a square matrix of order `size`.
class LuDecompDescriptor {
  public:
    LuDecompDescriptor(std::uint64_t size, DataTopologyDescriptor topology,
                       DataTypeDescriptor pivot_type, DataTypeDescriptor type,
                       DataMatrixFormat format, DataMatrixLayout layout,
                       DataComplexLayout complex_layout)
        : size_(size),
          topology_(std::move(topology)),
          pivot_type_(pivot_type),
          type_(type),
          format_(format),
          layout_(layout),
          complex_layout_(complex_layout) {}

    std::uint64_t size() const { return size_; }
    const DataTopologyDescriptor& topology() const { return topology_; }
    const DataTypeDescriptor& pivot_type() const { return pivot_type_; }
    /// The type of the factors.
    const DataTypeDescriptor& type() const { return type_; }
    DataMatrixFormat format() const { return format_; }
    DataMatrixLayout layout() const { return layout_; }
    DataComplexLayout complex_layout() const { return complex_layout_; }

  private:
    std::uint64_t size_;
    DataTopologyDescriptor topology_;
    DataTypeDescriptor pivot_type_;
    DataTypeDescriptor type_;
    DataMatrixFormat format_;
    DataMatrixLayout layout_;
    DataComplexLayout complex_layout_;
};

/// Eigenvalues of a matrix of order `size`, with its matrix of eigenvectors.
class EigenValsDescriptor {
  public:
    EigenValsDescriptor(std::uint64_t size, DataTopologyDescriptor topology,
                        DataTypeDescriptor type, DataVectorFormat vector_format,
                        DataMatrixLayout vector_layout, DataComplexLayout complex_layout)
        : size_(size),
          topology_(std::move(topology)),
          type_(type),
          vector_format_(vector_format),
          vector_layout_(vector_layout),
          complex_layout_(complex_layout) {}

    std::uint64_t size() const { return size_; }
    const DataTopologyDescriptor& topology() const { return topology_; }
    const DataTypeDescriptor& type() const { return type_; }
    DataVectorFormat vector_format() const { return vector_format_; }
    /// The layout of the matrix of eigenvectors.
    DataMatrixLayout vector_layout() const { return vector_layout_; }
    DataComplexLayout complex_layout() const { return complex_layout_; }

  private:
    std::uint64_t size_;
    DataTopologyDescriptor topology_;
    DataTypeDescriptor type_;
    DataVectorFormat vector_format_;
    DataMatrixLayout vector_layout_;
    DataComplexLayout complex_layout_;
};

} // namespace Tessaline
