#pragma once

// An app core for the web layer's tests: the app suites' test configuration
// and recording bridges, launched.

#include <memory>

#include "app/app_core.h"
#include "app/app_test_support.h"
#include "app/fake_bridge.h"

namespace ferrylink::app::testing {

class WebTestApp {
public:
    WebTestApp() : core(std::make_unique<AppCore>(testConfig(scratch.path()), bridges.factory())) {
        onMain([&] { core->launch(); });
    }

    ScratchDirectory scratch;
    FakeBridgeFactory bridges;
    LogCollector log;  // the backend's refusals land here, not in the test's output
    std::unique_ptr<AppCore> core;
};

}  // namespace ferrylink::app::testing
