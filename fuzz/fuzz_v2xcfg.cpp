// Writes the input to a file in memory, opens the file as a configuration and reads a few keys as each type.
#include "v2x/v2xcfg.h"

#include <array>

#include "memory_file.h"

namespace {

constexpr const char* KEYS[] = {"a",     "b",     "a.b",     "g.a",
                                "g.b.c", "a.[0]", "g.[1].a", "rsuSpatConfigInfo.LearnMachine.Port"};

void ReadAll(V2X_CFGHANDLE root) {
    constexpr int32_t MAX_TEXT = 16;
    for (const char* const key : KEYS) {
        bool flag = false;
        int32_t number = 0;
        std::array<char, MAX_TEXT + 1> text{};
        int32_t length = MAX_TEXT;
        v2xcfg_GetNodeValue(root, V2XCFG_TYPE_BOOL, key, &flag, nullptr);
        v2xcfg_GetNodeValue(root, V2XCFG_TYPE_INT32, key, &number, nullptr);
        v2xcfg_GetNodeValue(root, V2XCFG_TYPE_STRING, key, text.data(), &length);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string path = writeMemoryFile(data, size);
    V2X_CFGHANDLE root = nullptr;
    if (v2xcfg_InitContext(&root, path.c_str()) == 0) {
        ReadAll(root);
        v2xcfg_ExitContext(root);
    }
    return 0;
}
