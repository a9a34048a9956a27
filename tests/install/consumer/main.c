/* A program built against the installed library: asks for the version and
 * level-shifts one row. */
#include <stdio.h>
#include <zebjp.h>

int main(void) {
    const ZebLibraryVersion* v = zebjGetLibVersion();
    Zeb8u src[5] = {0, 1, 128, 200, 255};
    Zeb16s dst[5];
    ZebSize roi = {5, 1};
    if (zebiSub128_JPEG_8u16s_C1R(src, 5, dst, 10, roi) != zebStatusOk) return 1;
    if (dst[0] != -128 || dst[4] != 127) return 1;
    printf("%s %d\n", v->version, dst[2]);
    return 0;
}
