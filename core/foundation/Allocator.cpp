#include "foundation/Allocator.h"

#if defined(__GLIBC__)
#include <malloc.h>
#endif

namespace tidewick::Allocator {

void returnLargeBlocksToTheSystem() {
#if defined(__GLIBC__)
    // Setting the threshold also turns its moving off.
    (void)::mallopt(M_MMAP_THRESHOLD, 1024 * 1024);
#endif
}

} // namespace tidewick::Allocator
