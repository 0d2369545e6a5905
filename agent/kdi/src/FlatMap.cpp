#include "FlatMap.h"

#include <random>

namespace Kdi {

static uint64_t DrawSeed() {
    std::random_device device;
    return uint64_t{device()} << 32 | device();
}

const uint64_t g_HashSeed = DrawSeed();

}  // namespace Kdi
