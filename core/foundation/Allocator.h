// How the application asks the system allocator to treat its memory.
#pragma once

namespace tidewick::Allocator {

/// Has every block of a megabyte or more mapped on its own and handed back to the system
/// when freed. Without it, the allocator moves that threshold up after freeing a large
/// block and later large blocks (request lines of several megabytes) stay in the heaps of
/// the threads that freed them, resident, long after use. Call once at start, before the
/// threads. Does nothing where the allocator has no such setting.
void returnLargeBlocksToTheSystem();

} // namespace tidewick::Allocator
