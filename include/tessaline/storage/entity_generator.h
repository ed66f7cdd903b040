// SPDX-License-Identifier: Apache-2.0
#pragma once

// Makes the entity classes of a table. A table is a macro that lists its classes for a macro,
// ENTITY(elements, Class, ...): `elements` tells for which compiled policies a class is
// instantiated and on which of their types; what follows is for the table's own definition of a
// class.
//
// | elements    | policies        | instantiation                                     |
// |-------------|-----------------|---------------------------------------------------|
// | real        | all but complex | Class<Stored, Compute>                            |
// | split       | complex         | Class<Component<Stored>, Component<Compute>>      |
// | interleaved | complex         | Class<Stored, Compute>                            |
// | factors     | all but integer | Class<long, Stored, Compute>, pivots first        |

#include "tessaline/storage/numeric_policy.h"

/// The class template `Class<Stored, Compute>` over storage, which takes `EntityNames::Class` for
/// its Name; its constructors are those of the storage.
#define TESSALINE_DEFINE_ENTITY(Class, ...)                                                        \
    namespace EntityNames {                                                                        \
    inline constexpr char Class[] = #Class;                                                        \
    }                                                                                              \
    template <BufferElement Stored, BufferElement Compute>                                         \
    class TESSALINE_API Class final : public __VA_ARGS__ {                                         \
        using Storage = __VA_ARGS__;                                                               \
                                                                                                   \
      public:                                                                                      \
        using Storage::Storage;                                                                    \
    };

/// The instantiations of a row, kept by the runtime so that clients need not repeat them.
#define TESSALINE_DECLARE_ENTITY(elements, Class, ...)                                             \
    TESSALINE_COMPILED_POLICIES(TESSALINE_INSTANTIATE_ENTITY, extern, elements, Class)
#define TESSALINE_INSTANTIATE_ENTITIES(elements, Class, ...)                                       \
    TESSALINE_COMPILED_POLICIES(TESSALINE_INSTANTIATE_ENTITY, , elements, Class)

#define TESSALINE_INSTANTIATE_ENTITY(category, Stored, Compute, PREFIX, elements, Class)           \
    TESSALINE_INSTANTIATE_##elements##_##category(PREFIX, Class, Stored, Compute)

#define TESSALINE_INSTANTIATE_real_floating(PREFIX, Class, Stored, Compute)                        \
    PREFIX template class Class<Stored, Compute>;
#define TESSALINE_INSTANTIATE_real_integer TESSALINE_INSTANTIATE_real_floating
#define TESSALINE_INSTANTIATE_real_complex(...)
#define TESSALINE_INSTANTIATE_split_floating(...)
#define TESSALINE_INSTANTIATE_split_integer(...)
#define TESSALINE_INSTANTIATE_split_complex(PREFIX, Class, Stored, Compute)                        \
    PREFIX template class Class<Component<Stored>, Component<Compute>>;
#define TESSALINE_INSTANTIATE_interleaved_floating(...)
#define TESSALINE_INSTANTIATE_interleaved_integer(...)
#define TESSALINE_INSTANTIATE_interleaved_complex TESSALINE_INSTANTIATE_real_floating
#define TESSALINE_INSTANTIATE_factors_floating(PREFIX, Class, Stored, Compute)                     \
    PREFIX template class Class<long, Stored, Compute>;
#define TESSALINE_INSTANTIATE_factors_integer(...)
#define TESSALINE_INSTANTIATE_factors_complex TESSALINE_INSTANTIATE_factors_floating
