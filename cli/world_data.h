#pragma once

namespace ferrylink::cli {

// The world-data files a run sends every console are where the bridge will
// look for them; without them a run would end the process at its start.
// Throws std::runtime_error naming the folder, or every place looked in.
void checkWorldData();

}  // namespace ferrylink::cli
