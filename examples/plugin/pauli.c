/* SPDX-License-Identifier: Apache-2.0 */

/*
 * A plugin with one operation, pauli.expectation@1: the expectation value of a string of Pauli
 * matrices in a state of n qubits, without building its matrix of 4^n elements.
 *
 *   input 0   the state: a vector of 2^n amplitudes, float32 or complex64
 *   input 1   int32 scalar: bit q is set where the string has X or Y on qubit q
 *   input 2   int32 scalar: bit q is set where the string has Z or Y on qubit q
 *   output 0  float32 scalar: the expectation value
 */

#include <tessaline/plugin.h>

#include <complex.h>

/* Complex vectors lie interleaved: a real and an imaginary part for each amplitude. */
static double complex amplitude(const tessaline_operand_view* state, uint64_t index) {
    const float* parts = state->buffers[0].data;
    if (state->storage == TESSALINE_SCALAR_COMPLEX64) {
        return parts[2 * index] + parts[2 * index + 1] * I;
    }
    return parts[index];
}

static uint32_t mask(const tessaline_operand_view* scalar) {
    const int32_t* value = scalar->buffers[0].data;
    return (uint32_t)*value;
}

/* The string maps |k> to i^(number of Ys) (-1)^(number of ones in k & z) |k ^ x>. */
static tessaline_status expectation(void* user_data, const tessaline_kernel_invocation* invocation,
                                    const tessaline_error_sink* sink) {
    static const double complex powers_of_i[] = {1.0, I, -1.0, -I};
    const tessaline_operand_view* state = &invocation->operands[0];
    const uint32_t x = mask(&invocation->operands[1]);
    const uint32_t z = mask(&invocation->operands[2]);
    float* result = invocation->operands[3].buffers[0].mutable_data;
    double complex sum = 0.0;
    uint64_t k;
    (void)user_data;

    if (state->rows == 0 || (state->rows & (state->rows - 1)) != 0) {
        return tessaline_fail(sink, TESSALINE_STATUS_INVALID_ARGUMENT,
                              "a state of n qubits has 2^n amplitudes");
    }
    if ((x | z) >= state->rows) {
        return tessaline_fail(sink, TESSALINE_STATUS_INVALID_ARGUMENT,
                              "the string acts on a qubit that the state does not have");
    }
    for (k = 0; k < state->rows; ++k) {
        const double complex term = conj(amplitude(state, k ^ x)) * amplitude(state, k);
        sum += __builtin_parityll(k & z) ? -term : term;
    }
    *result = (float)creal(powers_of_i[__builtin_popcount(x & z) % 4] * sum);
    return TESSALINE_STATUS_OK;
}

/* One operand in pageable host memory whose type is also the one to compute in. */
static tessaline_backend_operand operand(uint32_t role, uint32_t kind, uint32_t type) {
    const int is_output = role >= TESSALINE_ROLE_OUTPUT(0);
    const int is_complex = type == TESSALINE_SCALAR_COMPLEX64;
    const tessaline_backend_operand record = {
        .struct_size = sizeof(record),
        .role = role,
        .access = is_output ? TESSALINE_ACCESS_WRITE : TESSALINE_ACCESS_READ,
        .kind = kind,
        .location = TESSALINE_LOCATION_PAGEABLE_HOST,
        .storage = type,
        .complex_layout =
            is_complex ? TESSALINE_COMPLEX_LAYOUT_INTERLEAVED : TESSALINE_COMPLEX_LAYOUT_NONE,
        .matrix_layout = TESSALINE_MATRIX_LAYOUT_NONE,
        .compute = type,
    };
    return record;
}

/* One kernel serves both types; each is registered as an implementation of its own. */
static tessaline_status register_expectation(const tessaline_host* host,
                                             const tessaline_error_sink* sink,
                                             uint32_t state_type) {
    const tessaline_backend_operand operands[] = {
        operand(TESSALINE_ROLE_INPUT(0), TESSALINE_OPERAND_VECTOR, state_type),
        operand(TESSALINE_ROLE_INPUT(1), TESSALINE_OPERAND_SCALAR, TESSALINE_SCALAR_INT32),
        operand(TESSALINE_ROLE_INPUT(2), TESSALINE_OPERAND_SCALAR, TESSALINE_SCALAR_INT32),
        operand(TESSALINE_ROLE_OUTPUT(0), TESSALINE_OPERAND_SCALAR, TESSALINE_SCALAR_FLOAT32),
    };
    const tessaline_kernel_spec spec = {
        .struct_size = sizeof(spec),
        .operation = {.struct_size = sizeof(spec.operation),
                      .name = tessaline_string_from("pauli.expectation"),
                      .major = 1},
        .backend = TESSALINE_BACKEND_CPU_SIMD,
        .operands = operands,
        .operand_count = sizeof(operands) / sizeof(operands[0]),
        .callback = expectation,
    };
    return host->register_kernel(host->context, &spec, sink);
}

tessaline_status tessaline_plugin_init(const tessaline_host* host,
                                       tessaline_plugin_metadata* metadata,
                                       const tessaline_error_sink* sink) {
    tessaline_status status;
    if (host->abi_revision != TESSALINE_PLUGIN_ABI_REVISION) {
        return tessaline_fail(sink, TESSALINE_STATUS_UNSUPPORTED, "built for another runtime");
    }
    metadata->abi_revision = TESSALINE_PLUGIN_ABI_REVISION;
    metadata->plugin_id = tessaline_string_from("pauli");
    metadata->version = tessaline_string_from("1.0");
    status = register_expectation(host, sink, TESSALINE_SCALAR_FLOAT32);
    if (status == TESSALINE_STATUS_OK) {
        status = register_expectation(host, sink, TESSALINE_SCALAR_COMPLEX64);
    }
    return status;
}
