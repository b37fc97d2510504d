#include "foundation/random.h"

#include <stdlib.h>

namespace ferrylink::foundation {

uint32_t random32() { return ::arc4random(); }

}  // namespace ferrylink::foundation
