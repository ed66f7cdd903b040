// SPDX-License-Identifier: Apache-2.0
#include "backend/cpu/eigen_general/schur.h"

#include "backend/cpu/eigen_general/failures.h"
#include "backend/cpu/eigen_general/qr_step.h"
#include "backend/cpu/eigen_general/shift.h"
#include "backend/cpu/runtime/stop_point.h"

namespace Tessaline::CpuFallback {

void reduce_to_triangular(SchurForm& schur, Deflation& deflation, double epsilon) {
    QrStep step(schur.n);
    ShiftSequence shifts;
    std::size_t active = deflation.deflate(schur, schur.n);
    while (active > 1) {
        stop_point();
        step.iterate(schur, active, shifts.next(schur, active), epsilon);
        if (!are_finite(schur.H)) {
            throw_solver_failure("QR iteration produced a non-finite intermediate");
        }
        const std::size_t remaining = deflation.deflate(schur, active);
        shifts.record(remaining < active, active);
        active = remaining;
    }
}

} // namespace Tessaline::CpuFallback
