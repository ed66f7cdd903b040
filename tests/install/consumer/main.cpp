// SPDX-License-Identifier: Apache-2.0

#include <tessaline/tessaline.h>

int main() {
    using namespace Tessaline;
    const Vector a = Vector::host({1.0F, 2.0F, 3.0F});
    const Vector b = Vector::host({10.0F, 20.0F, 30.0F});
    Vector sum = Vector::host_zeros<float>(3);

    const TessalineContext context;
    TessalineExecutor executor(context, BackendExecutor::cpu_only());
    OperationBindings bindings;
    bindings.bind(input_role(0), a).bind(input_role(1), b).bind(output_role(0), sum);
    executor.execute(OperationId::parse("tessaline.add@1"), bindings);
    return elements<float>(sum)[2] == 33.0F ? 0 : 1;
}
