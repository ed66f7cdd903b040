// SPDX-License-Identifier: Apache-2.0

#include <tessaline/catalogue/operation_id.h>

int main() {
    return Tessaline::OperationId::parse("tessaline.add@1").name() == "tessaline.add" ? 0 : 1;
}
