// SPDX-License-Identifier: Apache-2.0

// A program whose context lives before main and after it. This file names no built-in operation, so
// that their ids are those of the library alone.

#include <tessaline/frontend/elements.h>
#include <tessaline/frontend/tessaline_executor.h>

#include <cstdlib>

namespace {

using namespace Tessaline;

const TessalineContext context;
const TessalineExecutor executor(context, BackendExecutor::cpu_only());

double sum_of_three() {
    const Vector terms = Vector::host({1.0, 2.0, 3.0});
    Scalar sum = Scalar::host(0.0);
    OperationBindings bindings;
    bindings.bind(input_role(0), terms).bind(output_role(0), sum);
    executor.execute(OperationId::parse("tessaline.sum@1"), bindings);
    return value<double>(sum);
}

const double sum_before_main = sum_of_three();

} // namespace

int main() {
    return sum_before_main == 6 && sum_of_three() == 6 ? EXIT_SUCCESS : EXIT_FAILURE;
}
