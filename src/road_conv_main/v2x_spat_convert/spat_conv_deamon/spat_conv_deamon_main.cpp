#include "spat_conv_deamon.h"
#include "spat_conv_deamon_service.h"

int main(int argc, char** argv) {
    const bool isRefused = v2xspatconv_init(argc, argv) != 0;
    v2xspatconv_exec();
    return isRefused ? v2xspatconv_ServiceRefusedStatus() : 0;
}
