/* zebjp: image-coding primitives for JPEG, JPEG 2000, JPEG XR, DXT/BC textures
 * and TIFF PackBits.
 *
 * Every operation works on caller-owned memory, one block, row, region or
 * code-block per call, and returns a ZebStatus: 0 success, negative failure,
 * positive warning (the work was done). Argument checks run before any write:
 * pointers (-8), then steps (-14), then sizes (-6), then other arguments.
 * A failed check leaves all memory untouched. Row steps are always in bytes.
 */
#ifndef ZEBJP_H
#define ZEBJP_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#if defined(__GNUC__)
#define ZEBAPI __attribute__((visibility("default")))
#else
#define ZEBAPI
#endif

typedef uint8_t Zeb8u;
typedef int8_t Zeb8s;
typedef uint16_t Zeb16u;
typedef int16_t Zeb16s;
typedef uint32_t Zeb32u;
typedef int32_t Zeb32s;
typedef float Zeb32f;

/* ------------------------------------------------------------------ status */
typedef int32_t ZebStatus;

enum {
    zebStatusOk = 0,
    zebStatusOddSize = 35,            /* warning: odd width/height in a subsampling conversion */
    zebStatusDivideByZero = 6,        /* warning: zero divisor; that entry holds 65535 */
    zebStatusUnspecified = -2,        /* a decoded run passed the last coefficient */
    zebStatusBadArgument = -5,
    zebStatusBadSize = -6,
    zebStatusOutOfRange = -7,
    zebStatusNullPointer = -8,
    zebStatusNoMemory = -9,
    zebStatusBadStep = -14,
    zebStatusBadContext = -17,
    zebStatusJpegBufferEnd = -62,
    zebStatusJpegCoefficientRange = -63,
    zebStatusJpegHuffmanTable = -64,
    zebStatusJ2kCodeBlockError = -112,
    zebStatusJ2kBadPass = -113,
    zebStatusBufferLimit = -124,
    zebStatusJ2kNotAttached = -180,
    zebStatusBc7BadMode = -9999
};

/* ------------------------------------------------------------------ shared types */
typedef struct ZebSize {
    int32_t width;
    int32_t height;
} ZebSize;

typedef struct ZebTileRect {
    int32_t x;
    int32_t y;
    int32_t width;
    int32_t height;
} ZebTileRect;

typedef struct ZebLibraryVersion {
    int32_t major;
    int32_t minor;
    int32_t majorBuild;
    int32_t build;
    char targetCpu[4];     /* "h9" and two zero bytes */
    const char* name;
    const char* version;
    const char* buildDate;
} ZebLibraryVersion;

/* ------------------------------------------------------------------ library */

/* The constant version record. Never null; the same address on every call. */
ZEBAPI const ZebLibraryVersion* zebjGetLibVersion(void);

/* ------------------------------------------------------------------ level shift */

/* dst = clamp(src + 128, 0, 255). Row-parallel above 8192 pixels. */
ZEBAPI ZebStatus zebiAdd128_JPEG_16s8u_C1R(const Zeb16s* src, int srcStep, Zeb8u* dst, int dstStep,
                                           ZebSize roiSize);
/* dst = src - 128. Row-parallel above 8192 pixels. */
ZEBAPI ZebStatus zebiSub128_JPEG_8u16s_C1R(const Zeb8u* src, int srcStep, Zeb16s* dst, int dstStep,
                                           ZebSize roiSize);

/* ------------------------------------------------------------------ JPEG forward colour conversion */

/* RGB pixels to Y (15-bit form). Row-parallel above 8192 pixels. */
ZEBAPI ZebStatus zebiRGBToY_JPEG_8u_C3C1R(const Zeb8u* src, int srcStep, Zeb8u* dst, int dstStep, ZebSize roiSize);
/* BGR pixels to Y (15-bit form). Row-parallel above 8192 pixels. */
ZEBAPI ZebStatus zebiBGRToY_JPEG_8u_C3C1R(const Zeb8u* src, int srcStep, Zeb8u* dst, int dstStep, ZebSize roiSize);
/* R, G, B planes to Y: float form on the first width & ~3, table form on the rest. Row-parallel. */
ZEBAPI ZebStatus zebiRGBToY_JPEG_8u_P3C1R(const Zeb8u* const src[3], int srcStep, Zeb8u* dst, int dstStep, ZebSize roiSize);
/* RGB pixels to Y, Cb, Cr planes: 15-bit form on blocks of 8, 14-bit form on the last width % 8. Row-parallel. */
ZEBAPI ZebStatus zebiRGBToYCbCr_JPEG_8u_C3P3R(const Zeb8u* src, int srcStep, Zeb8u* const dst[3], int dstStep, ZebSize roiSize);
/* BGR pixels to Y, Cb, Cr planes; as the RGB form. Row-parallel. */
ZEBAPI ZebStatus zebiBGRToYCbCr_JPEG_8u_C3P3R(const Zeb8u* src, int srcStep, Zeb8u* const dst[3], int dstStep, ZebSize roiSize);
/* R, G, B planes to Y, Cb, Cr planes: difference form on the first width & ~3, table form on the rest. Row-parallel. */
ZEBAPI ZebStatus zebiRGBToYCbCr_JPEG_8u_P3R(const Zeb8u* const src[3], int srcStep, Zeb8u* const dst[3], int dstStep, ZebSize roiSize);
/* Four-byte RGB pixels (fourth byte unread) to planes: high-half form on the first width & ~7, four-channel form on the rest. Steps are not tested. */
ZEBAPI ZebStatus zebiRGBToYCbCr_JPEG_8u_C4P3R(const Zeb8u* src, int srcStep, Zeb8u* const dst[3], int dstStep, ZebSize roiSize);
/* Four-byte BGR pixels to planes; as the RGB form. */
ZEBAPI ZebStatus zebiBGRToYCbCr_JPEG_8u_C4P3R(const Zeb8u* src, int srcStep, Zeb8u* const dst[3], int dstStep, ZebSize roiSize);
/* Packed 555 words (R in the low bits) to planes, 14-bit form. */
ZEBAPI ZebStatus zebiRGB555ToYCbCr_JPEG_16u8u_C3P3R(const Zeb16u* src, int srcStep, Zeb8u* const dst[3], int dstStep, ZebSize roiSize);
/* Packed 555 words (B in the low bits) to planes, 14-bit form. */
ZEBAPI ZebStatus zebiBGR555ToYCbCr_JPEG_16u8u_C3P3R(const Zeb16u* src, int srcStep, Zeb8u* const dst[3], int dstStep, ZebSize roiSize);
/* Packed 565 words (R in the low bits) to planes, 14-bit form. */
ZEBAPI ZebStatus zebiRGB565ToYCbCr_JPEG_16u8u_C3P3R(const Zeb16u* src, int srcStep, Zeb8u* const dst[3], int dstStep, ZebSize roiSize);
/* Packed 565 words (B in the low bits) to planes, 14-bit form. */
ZEBAPI ZebStatus zebiBGR565ToYCbCr_JPEG_16u8u_C3P3R(const Zeb16u* src, int srcStep, Zeb8u* const dst[3], int dstStep, ZebSize roiSize);
/* RGB pixels to Y, Cb, Cr planes at 4:2:2 (chroma width / 2); width >= 2; an odd width returns 35 with the last column left out. Steps are not tested. */
ZEBAPI ZebStatus zebiRGBToYCbCr422_JPEG_8u_C3P3R(const Zeb8u* src, int srcStep, Zeb8u* const dst[3], const int dstStep[3], ZebSize roiSize);
/* RGB pixels to Y, Cb, Cr planes at 4:2:2 (chroma width / 2); width >= 2; an odd width returns 35 with the last column left out. Steps are not tested. */
ZEBAPI ZebStatus zebiRGBToYCbCr422_JPEG_8u_C4P3R(const Zeb8u* src, int srcStep, Zeb8u* const dst[3], const int dstStep[3], ZebSize roiSize);
/* BGR pixels to Y, Cb, Cr planes at 4:2:2 (chroma width / 2); width >= 2; an odd width returns 35 with the last column left out. Steps are not tested. */
ZEBAPI ZebStatus zebiBGRToYCbCr422_JPEG_8u_C3P3R(const Zeb8u* src, int srcStep, Zeb8u* const dst[3], const int dstStep[3], ZebSize roiSize);
/* BGR pixels to Y, Cb, Cr planes at 4:2:2 (chroma width / 2); width >= 2; an odd width returns 35 with the last column left out. Steps are not tested. */
ZEBAPI ZebStatus zebiBGRToYCbCr422_JPEG_8u_C4P3R(const Zeb8u* src, int srcStep, Zeb8u* const dst[3], const int dstStep[3], ZebSize roiSize);
/* RGB pixels to Y, Cb, Cr planes at 4:1:1 (chroma width / 2 by height / 2); width and height >= 2; an odd width or height returns 35. Steps are not tested. */
ZEBAPI ZebStatus zebiRGBToYCbCr411_JPEG_8u_C3P3R(const Zeb8u* src, int srcStep, Zeb8u* const dst[3], const int dstStep[3], ZebSize roiSize);
/* RGB pixels to Y, Cb, Cr planes at 4:1:1 (chroma width / 2 by height / 2); width and height >= 2; an odd width or height returns 35. Steps are not tested. */
ZEBAPI ZebStatus zebiRGBToYCbCr411_JPEG_8u_C4P3R(const Zeb8u* src, int srcStep, Zeb8u* const dst[3], const int dstStep[3], ZebSize roiSize);
/* BGR pixels to Y, Cb, Cr planes at 4:1:1 (chroma width / 2 by height / 2); width and height >= 2; an odd width or height returns 35. Steps are not tested. */
ZEBAPI ZebStatus zebiBGRToYCbCr411_JPEG_8u_C3P3R(const Zeb8u* src, int srcStep, Zeb8u* const dst[3], const int dstStep[3], ZebSize roiSize);
/* BGR pixels to Y, Cb, Cr planes at 4:1:1 (chroma width / 2 by height / 2); width and height >= 2; an odd width or height returns 35. Steps are not tested. */
ZEBAPI ZebStatus zebiBGRToYCbCr411_JPEG_8u_C4P3R(const Zeb8u* src, int srcStep, Zeb8u* const dst[3], const int dstStep[3], ZebSize roiSize);
/* CMYK pixels to Y, Cb, Cr, K planes: 14-bit form on the inverted colours, K copied. Row-parallel. */
ZEBAPI ZebStatus zebiCMYKToYCCK_JPEG_8u_C4P4R(const Zeb8u* src, int srcStep, Zeb8u* const dst[4], int dstStep, ZebSize roiSize);
/* C, M, Y, K planes to Y, Cb, Cr, K: difference form (then table form) on the inverted colours, K copied. Row-parallel. */
ZEBAPI ZebStatus zebiCMYKToYCCK_JPEG_8u_P4R(const Zeb8u* const src[4], int srcStep, Zeb8u* const dst[4], int dstStep, ZebSize roiSize);

/* (end of JPEG forward colour conversion) */

/* ------------------------------------------------------------------ JPEG inverse colour conversion */

/* Y, Cb, Cr planes to R, G, B planes: plane form on the first width & ~3, table form on the rest. Row-parallel. */
ZEBAPI ZebStatus zebiYCbCrToRGB_JPEG_8u_P3R(const Zeb8u* const src[3], int srcStep, Zeb8u* const dst[3], int dstStep, ZebSize roiSize);
/* Planes to RGB pixels: pixel form on the first width & ~3, table form on the rest. Row-parallel. */
ZEBAPI ZebStatus zebiYCbCrToRGB_JPEG_8u_P3C3R(const Zeb8u* const src[3], int srcStep, Zeb8u* dst, int dstStep, ZebSize roiSize);
/* Planes to BGR pixels; as the RGB form. Row-parallel. */
ZEBAPI ZebStatus zebiYCbCrToBGR_JPEG_8u_P3C3R(const Zeb8u* const src[3], int srcStep, Zeb8u* dst, int dstStep, ZebSize roiSize);
/* Planes to four-byte RGB pixels with alpha in the fourth byte, high-half form. Steps are not tested. */
ZEBAPI ZebStatus zebiYCbCrToRGB_JPEG_8u_P3C4R(const Zeb8u* const src[3], int srcStep, Zeb8u* dst, int dstStep, ZebSize roiSize, Zeb8u alpha);
/* Planes to four-byte BGR pixels with alpha in the fourth byte, high-half form. Steps are not tested. */
ZEBAPI ZebStatus zebiYCbCrToBGR_JPEG_8u_P3C4R(const Zeb8u* const src[3], int srcStep, Zeb8u* dst, int dstStep, ZebSize roiSize, Zeb8u alpha);
/* Planes to packed 555 words, R in the low bits. */
ZEBAPI ZebStatus zebiYCbCrToRGB555_JPEG_8u16u_P3C3R(const Zeb8u* const src[3], int srcStep, Zeb16u* dst, int dstStep, ZebSize roiSize);
/* Planes to packed 555 words, B in the low bits. */
ZEBAPI ZebStatus zebiYCbCrToBGR555_JPEG_8u16u_P3C3R(const Zeb8u* const src[3], int srcStep, Zeb16u* dst, int dstStep, ZebSize roiSize);
/* Planes to packed 565 words, R in the low bits. */
ZEBAPI ZebStatus zebiYCbCrToRGB565_JPEG_8u16u_P3C3R(const Zeb8u* const src[3], int srcStep, Zeb16u* dst, int dstStep, ZebSize roiSize);
/* Planes to packed 565 words, B in the low bits. */
ZEBAPI ZebStatus zebiYCbCrToBGR565_JPEG_8u16u_P3C3R(const Zeb8u* const src[3], int srcStep, Zeb16u* dst, int dstStep, ZebSize roiSize);
/* 4:2:2 planes (width >= 2; odd width returns 35) to RGB pixels, high-half form. */
ZEBAPI ZebStatus zebiYCbCr422ToRGB_JPEG_8u_P3C3R(const Zeb8u* const src[3], const int srcStep[3], Zeb8u* dst, int dstStep, ZebSize roiSize);
/* 4:2:2 planes (width >= 2; odd width returns 35) to four-byte RGB pixels with alpha, high-half form. */
ZEBAPI ZebStatus zebiYCbCr422ToRGB_JPEG_8u_P3C4R(const Zeb8u* const src[3], const int srcStep[3], Zeb8u* dst, int dstStep, ZebSize roiSize, Zeb8u alpha);
/* 4:2:2 planes (width >= 2; odd width returns 35) to BGR pixels, high-half form. */
ZEBAPI ZebStatus zebiYCbCr422ToBGR_JPEG_8u_P3C3R(const Zeb8u* const src[3], const int srcStep[3], Zeb8u* dst, int dstStep, ZebSize roiSize);
/* 4:2:2 planes (width >= 2; odd width returns 35) to four-byte BGR pixels with alpha, high-half form. */
ZEBAPI ZebStatus zebiYCbCr422ToBGR_JPEG_8u_P3C4R(const Zeb8u* const src[3], const int srcStep[3], Zeb8u* dst, int dstStep, ZebSize roiSize, Zeb8u alpha);
/* 4:1:1 planes (width, height >= 2; odd size returns 35) to RGB pixels, high-half form. */
ZEBAPI ZebStatus zebiYCbCr411ToRGB_JPEG_8u_P3C3R(const Zeb8u* const src[3], const int srcStep[3], Zeb8u* dst, int dstStep, ZebSize roiSize);
/* 4:1:1 planes (width, height >= 2; odd size returns 35) to four-byte RGB pixels with alpha, high-half form. */
ZEBAPI ZebStatus zebiYCbCr411ToRGB_JPEG_8u_P3C4R(const Zeb8u* const src[3], const int srcStep[3], Zeb8u* dst, int dstStep, ZebSize roiSize, Zeb8u alpha);
/* 4:1:1 planes (width, height >= 2; odd size returns 35) to BGR pixels, high-half form. */
ZEBAPI ZebStatus zebiYCbCr411ToBGR_JPEG_8u_P3C3R(const Zeb8u* const src[3], const int srcStep[3], Zeb8u* dst, int dstStep, ZebSize roiSize);
/* 4:1:1 planes (width, height >= 2; odd size returns 35) to four-byte BGR pixels with alpha, high-half form. */
ZEBAPI ZebStatus zebiYCbCr411ToBGR_JPEG_8u_P3C4R(const Zeb8u* const src[3], const int srcStep[3], Zeb8u* dst, int dstStep, ZebSize roiSize, Zeb8u alpha);
/* Interleaved Y0 Cb Y1 Cr to RGB pixels: pair form on the first width & ~7, table form on the rest; an odd width converts the last pair whole. Steps are not tested. Row-parallel. */
ZEBAPI ZebStatus zebiYCbCr422ToRGB_JPEG_8u_C2C3R(const Zeb8u* src, int srcStep, Zeb8u* dst, int dstStep, ZebSize roiSize);
/* Y, Cb, Cr, K planes to CMYK pixels (inverted colours, K copied). Row-parallel. */
ZEBAPI ZebStatus zebiYCCKToCMYK_JPEG_8u_P4C4R(const Zeb8u* const src[4], int srcStep, Zeb8u* dst, int dstStep, ZebSize roiSize);
/* Y, Cb, Cr, K planes to C, M, Y, K planes. Row-parallel. */
ZEBAPI ZebStatus zebiYCCKToCMYK_JPEG_8u_P4R(const Zeb8u* const src[4], int srcStep, Zeb8u* const dst[4], int dstStep, ZebSize roiSize);

/* (end of JPEG inverse colour conversion) */

/* ------------------------------------------------------------------ JPEG up- and down-sampling */

/* Halves rows: (s[2i] + s[2i+1] + 1) >> 1. dstRoiSize drives the loops. Row-parallel. */
ZEBAPI ZebStatus zebiSampleDownH2V1_JPEG_8u_C1R(const Zeb8u* src, int srcStep, ZebSize srcRoiSize, Zeb8u* dst, int dstStep, ZebSize dstRoiSize);
/* Halves both ways: (sum of 2x2 + 3) >> 2. Row-parallel. */
ZEBAPI ZebStatus zebiSampleDownH2V2_JPEG_8u_C1R(const Zeb8u* src, int srcStep, ZebSize srcRoiSize, Zeb8u* dst, int dstStep, ZebSize dstRoiSize);
/* Doubles rows with the 3:1 filter; reads one sample left and right of the region. */
ZEBAPI ZebStatus zebiSampleUpH2V1_JPEG_8u_C1R(const Zeb8u* src, int srcStep, ZebSize srcRoiSize, Zeb8u* dst, int dstStep, ZebSize dstRoiSize);
/* Doubles both ways with the 3:1 filter; reads the border around the region. Row-parallel. */
ZEBAPI ZebStatus zebiSampleUpH2V2_JPEG_8u_C1R(const Zeb8u* src, int srcStep, ZebSize srcRoiSize, Zeb8u* dst, int dstStep, ZebSize dstRoiSize);
/* srcWidth / 2 outputs with an alternating bias. */
ZEBAPI ZebStatus zebiSampleDownRowH2V1_Box_JPEG_8u_C1(const Zeb8u* src, int srcWidth, Zeb8u* dst);
/* Two rows to one, biases 1 and 2 alternating. */
ZEBAPI ZebStatus zebiSampleDownRowH2V2_Box_JPEG_8u_C1(const Zeb8u* src1, const Zeb8u* src2, int srcWidth, Zeb8u* dst);
/* 2 * srcWidth outputs; the ends copy the end samples. */
ZEBAPI ZebStatus zebiSampleUpRowH2V1_Triangle_JPEG_8u_C1(const Zeb8u* src, int srcWidth, Zeb8u* dst);
/* 2 * srcWidth outputs from a near row (src1) and a far row (src2). */
ZEBAPI ZebStatus zebiSampleUpRowH2V2_Triangle_JPEG_8u_C1(const Zeb8u* src1, const Zeb8u* src2, int srcWidth, Zeb8u* dst);

/* (end of JPEG up- and down-sampling) */

/* ------------------------------------------------------------------ JPEG MCU block encoders */

/* RGB pixels of an 8x8 MCU to 1 Y block and one Cb, Cr block, level-shifted; block form. */
ZEBAPI ZebStatus zebiRGBToYCbCr444LS_MCU_8u16s_C3P3R(const Zeb8u* src, int srcStep, Zeb16s* const dst[3]);
/* RGB pixels of a 16x8 MCU to 2 Y blocks and one Cb, Cr block, level-shifted; block form. */
ZEBAPI ZebStatus zebiRGBToYCbCr422LS_MCU_8u16s_C3P3R(const Zeb8u* src, int srcStep, Zeb16s* const dst[3]);
/* RGB pixels of a 16x16 MCU to 4 Y blocks and one Cb, Cr block, level-shifted; block form if plane 0 is 16-byte aligned, else plain form. */
ZEBAPI ZebStatus zebiRGBToYCbCr411LS_MCU_8u16s_C3P3R(const Zeb8u* src, int srcStep, Zeb16s* const dst[3]);
/* BGR pixels of an 8x8 MCU to 1 Y block and one Cb, Cr block, level-shifted; block form. */
ZEBAPI ZebStatus zebiBGRToYCbCr444LS_MCU_8u16s_C3P3R(const Zeb8u* src, int srcStep, Zeb16s* const dst[3]);
/* BGR pixels of a 16x8 MCU to 2 Y blocks and one Cb, Cr block, level-shifted; block form. */
ZEBAPI ZebStatus zebiBGRToYCbCr422LS_MCU_8u16s_C3P3R(const Zeb8u* src, int srcStep, Zeb16s* const dst[3]);
/* BGR pixels of a 16x16 MCU to 4 Y blocks and one Cb, Cr block, level-shifted; block form if plane 0 is 16-byte aligned, else plain form. */
ZEBAPI ZebStatus zebiBGRToYCbCr411LS_MCU_8u16s_C3P3R(const Zeb8u* src, int srcStep, Zeb16s* const dst[3]);
/* Packed BGR555 words of an 8x8 MCU to 1 Y block and one Cb, Cr block, level-shifted; block form. */
ZEBAPI ZebStatus zebiBGR555ToYCbCr444LS_MCU_16u16s_C3P3R(const Zeb16u* src, int srcStep, Zeb16s* const dst[3]);
/* Packed BGR555 words of a 16x8 MCU to 2 Y blocks and one Cb, Cr block, level-shifted; block form. */
ZEBAPI ZebStatus zebiBGR555ToYCbCr422LS_MCU_16u16s_C3P3R(const Zeb16u* src, int srcStep, Zeb16s* const dst[3]);
/* Packed BGR555 words of a 16x16 MCU to 4 Y blocks and one Cb, Cr block, level-shifted; block form. */
ZEBAPI ZebStatus zebiBGR555ToYCbCr411LS_MCU_16u16s_C3P3R(const Zeb16u* src, int srcStep, Zeb16s* const dst[3]);
/* Packed BGR565 words of an 8x8 MCU to 1 Y block and one Cb, Cr block, level-shifted; block form. */
ZEBAPI ZebStatus zebiBGR565ToYCbCr444LS_MCU_16u16s_C3P3R(const Zeb16u* src, int srcStep, Zeb16s* const dst[3]);
/* Packed BGR565 words of a 16x8 MCU to 2 Y blocks and one Cb, Cr block, level-shifted; block form. */
ZEBAPI ZebStatus zebiBGR565ToYCbCr422LS_MCU_16u16s_C3P3R(const Zeb16u* src, int srcStep, Zeb16s* const dst[3]);
/* Packed BGR565 words of a 16x16 MCU to 4 Y blocks and one Cb, Cr block, level-shifted; block form. */
ZEBAPI ZebStatus zebiBGR565ToYCbCr411LS_MCU_16u16s_C3P3R(const Zeb16u* src, int srcStep, Zeb16s* const dst[3]);
/* CMYK pixels of an 8x8 MCU to 1 Y block (and as many K blocks, K - 128) and one Cb, Cr block; block form if all four planes are 16-byte aligned, else plain form. */
ZEBAPI ZebStatus zebiCMYKToYCCK444LS_MCU_8u16s_C4P4R(const Zeb8u* src, int srcStep, Zeb16s* const dst[4]);
/* CMYK pixels of a 16x8 MCU to 2 Y blocks (and as many K blocks, K - 128) and one Cb, Cr block; block form if planes 0 and 3 are 16-byte aligned, else plain form. */
ZEBAPI ZebStatus zebiCMYKToYCCK422LS_MCU_8u16s_C4P4R(const Zeb8u* src, int srcStep, Zeb16s* const dst[4]);
/* CMYK pixels of a 16x16 MCU to 4 Y blocks (and as many K blocks, K - 128) and one Cb, Cr block; block form if planes 0 and 3 are 16-byte aligned, else plain form. */
ZEBAPI ZebStatus zebiCMYKToYCCK411LS_MCU_8u16s_C4P4R(const Zeb8u* src, int srcStep, Zeb16s* const dst[4]);
/* Y, Cb, Cr pixels of an 8x8 MCU to blocks, each sample minus 128. */
ZEBAPI ZebStatus zebiSampleDown444LS_MCU_8u16s_C3P3R(const Zeb8u* src, int srcStep, Zeb16s* const dst[3]);
/* Y, Cb, Cr pixels of a 16x8 MCU to 2 Y blocks and one Cb, Cr block; chroma (a + b - 256) >> 1. */
ZEBAPI ZebStatus zebiSampleDown422LS_MCU_8u16s_C3P3R(const Zeb8u* src, int srcStep, Zeb16s* const dst[3]);
/* Y, Cb, Cr pixels of a 16x16 MCU to 4 Y blocks and one Cb, Cr block; chroma (sum of 4 - 512) >> 2. */
ZEBAPI ZebStatus zebiSampleDown411LS_MCU_8u16s_C3P3R(const Zeb8u* src, int srcStep, Zeb16s* const dst[3]);
/* Y0 Cb Y1 Cr pairs of a 16x8 MCU to 2 Y blocks and one Cb, Cr block, each sample minus 128. */
ZEBAPI ZebStatus zebiSplit422LS_MCU_8u16s_C2P3R(const Zeb8u* src, int srcStep, Zeb16s* const dst[3]);

/* (end of JPEG MCU block encoders) */

/* ------------------------------------------------------------------ JPEG MCU block decoders */

/* 444 blocks to 8x8 RGB pixels: 14-bit form if all planes are 16-byte aligned, else plain form. */
ZEBAPI ZebStatus zebiYCbCr444ToRGBLS_MCU_16s8u_P3C3R(const Zeb16s* const src[3], Zeb8u* dst, int dstStep);
/* 444 blocks to 8x8 BGR pixels: 14-bit form if all planes are 16-byte aligned, else plain form. */
ZEBAPI ZebStatus zebiYCbCr444ToBGRLS_MCU_16s8u_P3C3R(const Zeb16s* const src[3], Zeb8u* dst, int dstStep);
/* 422 blocks to 16x8 RGB pixels: split form if all planes are 16-byte aligned, else plain form. */
ZEBAPI ZebStatus zebiYCbCr422ToRGBLS_MCU_16s8u_P3C3R(const Zeb16s* const src[3], Zeb8u* dst, int dstStep);
/* 422 blocks to 16x8 BGR pixels: split form if all planes are 16-byte aligned, else plain form. */
ZEBAPI ZebStatus zebiYCbCr422ToBGRLS_MCU_16s8u_P3C3R(const Zeb16s* const src[3], Zeb8u* dst, int dstStep);
/* 411 blocks to 16x16 RGB pixels: split form if all planes are 16-byte aligned, else plain form. */
ZEBAPI ZebStatus zebiYCbCr411ToRGBLS_MCU_16s8u_P3C3R(const Zeb16s* const src[3], Zeb8u* dst, int dstStep);
/* 411 blocks to 16x16 BGR pixels: split form if all planes are 16-byte aligned, else plain form. */
ZEBAPI ZebStatus zebiYCbCr411ToBGRLS_MCU_16s8u_P3C3R(const Zeb16s* const src[3], Zeb8u* dst, int dstStep);
/* 444 blocks to 8x8 packed BGR555 words (B in the low bits), split form. */
ZEBAPI ZebStatus zebiYCbCr444ToBGR555LS_MCU_16s16u_P3C3R(const Zeb16s* const src[3], Zeb16u* dst, int dstStep);
/* 444 blocks to 8x8 packed BGR565 words (B in the low bits), split form. */
ZEBAPI ZebStatus zebiYCbCr444ToBGR565LS_MCU_16s16u_P3C3R(const Zeb16s* const src[3], Zeb16u* dst, int dstStep);
/* 422 blocks to 16x8 packed BGR555 words (B in the low bits), split form. */
ZEBAPI ZebStatus zebiYCbCr422ToBGR555LS_MCU_16s16u_P3C3R(const Zeb16s* const src[3], Zeb16u* dst, int dstStep);
/* 422 blocks to 16x8 packed BGR565 words (B in the low bits), split form. */
ZEBAPI ZebStatus zebiYCbCr422ToBGR565LS_MCU_16s16u_P3C3R(const Zeb16s* const src[3], Zeb16u* dst, int dstStep);
/* 411 blocks to 16x16 packed BGR555 words (B in the low bits), split form. */
ZEBAPI ZebStatus zebiYCbCr411ToBGR555LS_MCU_16s16u_P3C3R(const Zeb16s* const src[3], Zeb16u* dst, int dstStep);
/* 411 blocks to 16x16 packed BGR565 words (B in the low bits), split form. */
ZEBAPI ZebStatus zebiYCbCr411ToBGR565LS_MCU_16s16u_P3C3R(const Zeb16s* const src[3], Zeb16u* dst, int dstStep);
/* 444 Y, Cb, Cr, K blocks to 8x8 CMYK pixels: split form complemented, K + 128 clamped, if all four planes are 16-byte aligned; else plain form complemented, K + 128 to its low byte. */
ZEBAPI ZebStatus zebiYCCK444ToCMYKLS_MCU_16s8u_P4C4R(const Zeb16s* const src[4], Zeb8u* dst, int dstStep);
/* 422 Y, Cb, Cr, K blocks to 16x8 CMYK pixels: split form complemented, K + 128 clamped, if all four planes are 16-byte aligned; else plain form complemented, K + 128 to its low byte. */
ZEBAPI ZebStatus zebiYCCK422ToCMYKLS_MCU_16s8u_P4C4R(const Zeb16s* const src[4], Zeb8u* dst, int dstStep);
/* 411 Y, Cb, Cr, K blocks to 16x16 CMYK pixels: split form complemented, K + 128 clamped, if all four planes are 16-byte aligned; else plain form complemented, K + 128 to its low byte. */
ZEBAPI ZebStatus zebiYCCK411ToCMYKLS_MCU_16s8u_P4C4R(const Zeb16s* const src[4], Zeb8u* dst, int dstStep);
/* 444 blocks to Y, Cb, Cr pixels, each sample clamp(v + 128), chroma replicated. */
ZEBAPI ZebStatus zebiSampleUp444LS_MCU_16s8u_P3C3R(const Zeb16s* const src[3], Zeb8u* dst, int dstStep);
/* 422 blocks to Y, Cb, Cr pixels, each sample clamp(v + 128), chroma replicated. */
ZEBAPI ZebStatus zebiSampleUp422LS_MCU_16s8u_P3C3R(const Zeb16s* const src[3], Zeb8u* dst, int dstStep);
/* 411 blocks to Y, Cb, Cr pixels, each sample clamp(v + 128), chroma replicated. */
ZEBAPI ZebStatus zebiSampleUp411LS_MCU_16s8u_P3C3R(const Zeb16s* const src[3], Zeb8u* dst, int dstStep);
/* 422 blocks to Y0 Cb Y1 Cr pairs (16x8 pixels), each sample clamp(v + 128). */
ZEBAPI ZebStatus zebiJoin422LS_MCU_16s8u_P3C2R(const Zeb16s* const src[3], Zeb8u* dst, int dstStep);

/* (end of JPEG MCU block decoders) */

/* ------------------------------------------------------------------ JPEG quantisation tables and quantisers */
/* Tables are 64 entries. The raw table holds the steps (1..255) in zigzag
 * order; forward (32768 / step, rounded) and inverse (the step) tables are
 * 16-bit, in natural order. */

/* Scales a raw table in place by a quality factor (>= 1): 5000 / quality
 * below 50, 200 - 2 * quality from 50; entries clamp to 1..255. */
ZEBAPI ZebStatus zebiQuantFwdRawTableInit_JPEG_8u(Zeb8u* rawTable, int quality);
/* Forward table from a raw table. Returns 6 (and 65535 in that entry) for a
 * zero step. */
ZEBAPI ZebStatus zebiQuantFwdTableInit_JPEG_8u16u(const Zeb8u* rawTable, Zeb16u* fwdTable);
/* Inverse table from a raw table: the steps in natural order. */
ZEBAPI ZebStatus zebiQuantInvTableInit_JPEG_8u16u(const Zeb8u* rawTable, Zeb16u* invTable);
/* Quantises a coefficient block in place; halves round toward +infinity. */
ZEBAPI ZebStatus zebiQuantFwd8x8_JPEG_16s_C1I(Zeb16s* srcDst, const Zeb16u* fwdTable);
/* Dequantises a coefficient block in place: low 16 bits of each product. */
ZEBAPI ZebStatus zebiQuantInv8x8_JPEG_16s_C1I(Zeb16s* srcDst, const Zeb16u* invTable);

/* (end of JPEG quantisation tables and quantisers) */

/* ------------------------------------------------------------------ JPEG forward DCT */
/* 8x8 forward DCT with quantisation fused (round to nearest, ties to even).
 * Blocks are 64 Zeb16s in natural order. */

/* Level-shifted 16-bit block to quantised coefficients; dst may equal src. */
ZEBAPI ZebStatus zebiDCTQuantFwd8x8_JPEG_16s_C1(const Zeb16s* src, Zeb16s* dst, const Zeb16u* fwdTable);
/* The same in place. */
ZEBAPI ZebStatus zebiDCTQuantFwd8x8_JPEG_16s_C1I(Zeb16s* srcDst, const Zeb16u* fwdTable);
/* 8x8 bytes (srcStep bytes apart), minus 128, to quantised coefficients. */
ZEBAPI ZebStatus zebiDCTQuantFwd8x8LS_JPEG_8u16s_C1R(const Zeb8u* src, int srcStep, Zeb16s* dst,
                                                     const Zeb16u* fwdTable);
/* 12-bit samples (0..4095, srcStep bytes apart), minus 2048, single-precision
 * transform; each coefficient is multiplied by its float table entry. */
ZEBAPI ZebStatus zebiDCTQuantFwd8x8LS_JPEG_16u16s_C1R(const Zeb16u* src, int srcStep, Zeb16s* dst,
                                                      const Zeb32f* fwdTable);

/* (end of JPEG forward DCT) */

/* ------------------------------------------------------------------ JPEG inverse DCT */
/* Dequantisation (low 16 bits of each product) and 8x8 inverse DCT. The LS
 * members add 128 and store bytes 0..255, dstStep bytes between rows. The
 * application picks the narrowest member that covers its non-zero
 * coefficients; no member looks at the data to choose a path. */

/* All 64 coefficients to 8x8 bytes. */
ZEBAPI ZebStatus zebiDCTQuantInv8x8LS_JPEG_16s8u_C1R(const Zeb16s* src, Zeb8u* dst, int dstStep,
                                                     const Zeb16u* invTable);
/* Only the DC: all 64 bytes equal (exact product, shifted by 3, no rounding). */
ZEBAPI ZebStatus zebiDCTQuantInv8x8LS_1x1_JPEG_16s8u_C1R(const Zeb16s* src, Zeb8u* dst, int dstStep,
                                                         const Zeb16u* invTable);
/* Only elements 0, 1, 8 and 9 are read. */
ZEBAPI ZebStatus zebiDCTQuantInv8x8LS_2x2_JPEG_16s8u_C1R(const Zeb16s* src, Zeb8u* dst, int dstStep,
                                                         const Zeb16u* invTable);
/* Only the first four elements of rows 0 to 3 are read. */
ZEBAPI ZebStatus zebiDCTQuantInv8x8LS_4x4_JPEG_16s8u_C1R(const Zeb16s* src, Zeb8u* dst, int dstStep,
                                                         const Zeb16u* invTable);
/* Reduced output: 2x2 bytes (two in each of two rows). */
ZEBAPI ZebStatus zebiDCTQuantInv8x8To2x2LS_JPEG_16s8u_C1R(const Zeb16s* src, Zeb8u* dst, int dstStep,
                                                          const Zeb16u* invTable);
/* Reduced output: 4x4 bytes. */
ZEBAPI ZebStatus zebiDCTQuantInv8x8To4x4LS_JPEG_16s8u_C1R(const Zeb16s* src, Zeb8u* dst, int dstStep,
                                                          const Zeb16u* invTable);
/* 12-bit samples in single precision with a float table of steps: 2048 is
 * added, the value truncated and clamped to 0..4095. */
ZEBAPI ZebStatus zebiDCTQuantInv8x8LS_JPEG_16s16u_C1R(const Zeb16s* src, Zeb16u* dst, int dstStep,
                                                      const Zeb32f* invTable);
/* 16-bit output without the level shift; dst may equal src. */
ZEBAPI ZebStatus zebiDCTQuantInv8x8_JPEG_16s_C1(const Zeb16s* src, Zeb16s* dst, const Zeb16u* invTable);
/* The same in place. */
ZEBAPI ZebStatus zebiDCTQuantInv8x8_JPEG_16s_C1I(Zeb16s* srcDst, const Zeb16u* invTable);

/* (end of JPEG inverse DCT) */

/* ------------------------------------------------------------------ JPEG Huffman specifications and states */

/* (end of JPEG Huffman specifications and states) */

/* ------------------------------------------------------------------ JPEG baseline block coding */

/* (end of JPEG baseline block coding) */

/* ------------------------------------------------------------------ JPEG progressive coding and statistics */

/* (end of JPEG progressive coding and statistics) */

/* ------------------------------------------------------------------ JPEG lossless coding and predictors */

/* (end of JPEG lossless coding and predictors) */

/* ------------------------------------------------------------------ JPEG 2000 code-block encoder */

/* (end of JPEG 2000 code-block encoder) */

/* ------------------------------------------------------------------ JPEG 2000 code-block decoders */

/* (end of JPEG 2000 code-block decoders) */

/* ------------------------------------------------------------------ JPEG 2000 component transforms */

/* (end of JPEG 2000 component transforms) */

/* ------------------------------------------------------------------ JPEG 2000 5/3 wavelet */

/* (end of JPEG 2000 5/3 wavelet) */

/* ------------------------------------------------------------------ JPEG 2000 9/7 wavelet */

/* (end of JPEG 2000 9/7 wavelet) */

/* ------------------------------------------------------------------ JPEG 2000 whole-block wavelet drivers */

/* (end of JPEG 2000 whole-block wavelet drivers) */

/* ------------------------------------------------------------------ JPEG XR */

/* (end of JPEG XR) */

/* ------------------------------------------------------------------ Texture blocks */

/* (end of Texture blocks) */

/* ------------------------------------------------------------------ TIFF rows */

/* Packs one row of srcLen bytes as PackBits packets at dst + *dstPos, with
 * dstLen bytes of room from there. *dstPos moves behind the last complete
 * packet; -124 when a packet does not fit (retry from the same *dstPos). */
ZEBAPI ZebStatus zebiPackBitsRow_TIFF_8u_C1(const Zeb8u* src, int srcLen, Zeb8u* dst, int* dstPos, int dstLen);
/* Unpacks packets from src + *srcPos (srcLen is the end offset of the data)
 * until exactly dstLen bytes are in dst. *srcPos moves behind what was read;
 * -124 when the data ends or a packet would overflow dst. */
ZEBAPI ZebStatus zebiUnpackBitsRow_TIFF_8u_C1(const Zeb8u* src, int* srcPos, int srcLen, Zeb8u* dst, int dstLen);
/* Splits len little-endian 16-bit samples: high bytes to dst[0], low bytes to
 * dst[1]. A len below 1 is -14. */
ZEBAPI ZebStatus zebiSplitRow_TIFF_16u8u_C1(const Zeb16u* src, Zeb8u* dst[2], int len);
/* Joins high bytes from src[0] and low bytes from src[1] into len samples. */
ZEBAPI ZebStatus zebiJoinRow_TIFF_8u16u_C1(const Zeb8u* const src[2], Zeb16u* dst, int len);

/* (end of TIFF rows) */

#ifdef __cplusplus
}
#endif

#endif /* ZEBJP_H */
