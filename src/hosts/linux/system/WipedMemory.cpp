#include "hosts/linux/system/WipedMemory.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include <malloc.h>

namespace cadora {

void releaseWiped(void* block) noexcept {
    if (block != nullptr) {
        ::explicit_bzero(block, ::malloc_usable_size(block));
        std::free(block);
    }
}

// Moves also where realloc would find room behind the block: that it moves isn't told in time.
void* reallocateWiped(void* block, std::size_t size) noexcept {
    void* const moved = std::malloc(size);
    if (moved != nullptr && block != nullptr) {
        std::memcpy(moved, block, std::min(size, ::malloc_usable_size(block)));
        releaseWiped(block);
    }
    return moved;
}

} // namespace cadora
