#pragma once

#include <cstddef>

namespace cadora {

// Memory of malloc's that is overwritten before it goes back to it, since it may have held a token. As free
// and realloc otherwise. Any thread.
void releaseWiped(void* block) noexcept;
void* reallocateWiped(void* block, std::size_t size) noexcept;

} // namespace cadora
