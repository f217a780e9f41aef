// Reads three elements from the input, which is the text of a system-information file. Each value must end with a NUL.
// The value must be empty if reading fails.
#include <cstdlib>
#include <cstring>
#include <string>

#include "fakes.h"
#include "spat_conv_config.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    for (const char* tag : {"device_id", "device_name", "module_hardware_version"}) {
        char value[32] = "";
        const int32_t ret = v2xspatconv_parseXML(text.c_str(), tag, value, sizeof value);
        if (memchr(value, '\0', sizeof value) == nullptr || (ret != 0 && value[0] != '\0')) {
            abort();
        }
    }
    fakes::logLines.clear();
    return 0;
}
