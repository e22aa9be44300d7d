// Helper process of the pointer map tests: fills a map whose blocks no heap can provide, so the
// map's out-of-memory exception ends the process and its exit code is that exception's code.
//   PointerMapExhaust.exe
#include "TinyFramework/Graphics/TinyPointerMap.h"

#include <cstdint>

int main() {
    // 2^56 nodes of three pointers: about 1.7e18 bytes, a size that fits a size_t and that no
    // heap grants.
    TinyFramework::TinyPointerMap map(int64_t{1} << 56);
    map.SetAt(reinterpret_cast<void*>(1), reinterpret_cast<void*>(2));
    // Only reached if the block was granted after all.
    return 0;
}
