// SPDX-License-Identifier: Apache-2.0
#pragma once

// Where a long computation may end early. This header includes nothing and has no inline function,
// so that units for one instruction set may use it.

namespace Tessaline {

/// Raises what ends the run on this thread, if its caller asked for that; see RunStop. What has
/// been written by then stays. It costs some nanoseconds and may run other operations on this
/// thread: it stands between sweeps, iterations, panels and blocks, where the thread's packing
/// memory holds nothing.
void stop_point();

} // namespace Tessaline
