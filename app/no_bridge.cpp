#include "app/bridge_server.h"

namespace ferrylink::app {

// A build without the bridge subsystem has nothing to run.
BridgeFactory portalHopFactory() { return {}; }

}  // namespace ferrylink::app
