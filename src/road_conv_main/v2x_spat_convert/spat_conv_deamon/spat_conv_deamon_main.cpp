#include "spat_conv_deamon.h"

int main(int argc, char** argv) {
    v2xspatconv_init(argc, argv);
    v2xspatconv_exec();
    return 0;
}
