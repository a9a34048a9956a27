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

/* ------------------------------------------------------------------ JPEG Huffman tables and coder states */

/* A table travels as `bits` (16 counts: bits[l-1] codes of length l) and
 * `vals` (the symbols in code order, sum(bits) of them, at most 256). */

/* Encoder table: entry s is length << 16 | code (code right-justified in the
 * low 16 bits), 0 for a symbol without a code. 1024 bytes. */
typedef struct EncodeHuffmanSpec {
    Zeb32u entry[256];
} EncodeHuffmanSpec;

/* Decoder table, 1644 bytes. minCode, maxCode and symbolIndex are indexed by
 * the code length 1..16 (entry 0 unused; maxCode 65535 = no code of that
 * length; maxCode[17] is 65535). lookup: by the next 8 stream bits,
 * length << 16 | symbol for codes of at most 8 bits, else 0. */
typedef struct DecodeHuffmanSpec {
    Zeb16u symbols[256];
    Zeb32u lookup[256];
    Zeb16u minCode[18];
    Zeb16u maxCode[18];
    Zeb16u symbolIndex[18];
} DecodeHuffmanSpec;

/* Bit-level memory of one encoded scan, 1048 bytes. */
typedef struct EncodeHuffmanState {
    uint64_t accumulator;   /* pending output bits */
    Zeb32s bitCount;        /* number of pending bits */
    Zeb32s eobRun;          /* pending end-of-band run */
    Zeb32s correctionCount; /* pending correction bits */
    Zeb8u correctionBits[1024];
} EncodeHuffmanState;

/* Bit-level memory of one decoded scan, 24 bytes. */
typedef struct DecodeHuffmanState {
    uint64_t accumulator;   /* read-ahead bits, right-justified in the low 32 bits */
    Zeb32s bitCount;        /* valid bits in accumulator */
    Zeb32s eobRun;          /* remaining end-of-band run */
    Zeb32s blockEnd;        /* one past the zigzag position of the last decoded coefficient */
} DecodeHuffmanState;

/* Size queries: 1024, 1644, 1048 and 24 bytes. */
ZEBAPI ZebStatus zebiEncodeHuffmanSpecGetBufSize_JPEG_8u(int* size);
ZEBAPI ZebStatus zebiDecodeHuffmanSpecGetBufSize_JPEG_8u(int* size);
ZEBAPI ZebStatus zebiEncodeHuffmanStateGetBufSize_JPEG_8u(int* size);
ZEBAPI ZebStatus zebiDecodeHuffmanStateGetBufSize_JPEG_8u(int* size);

/* Build a table from bits/vals: -64 for an invalid code set. The encoder
 * builder rejects an overflowing set and an all-ones last code; the decoder
 * builder rejects sets that overflow the 8-bit lookup. InitAlloc allocates
 * (failure: -8) and hands out the object also when the build returns -64. */
ZEBAPI ZebStatus zebiEncodeHuffmanSpecInit_JPEG_8u(const Zeb8u* bits, const Zeb8u* vals, EncodeHuffmanSpec* spec);
ZEBAPI ZebStatus zebiEncodeHuffmanSpecInitAlloc_JPEG_8u(const Zeb8u* bits, const Zeb8u* vals,
                                                        EncodeHuffmanSpec** specOut);
ZEBAPI ZebStatus zebiEncodeHuffmanSpecFree_JPEG_8u(EncodeHuffmanSpec* spec);
ZEBAPI ZebStatus zebiDecodeHuffmanSpecInit_JPEG_8u(const Zeb8u* bits, const Zeb8u* vals, DecodeHuffmanSpec* spec);
ZEBAPI ZebStatus zebiDecodeHuffmanSpecInitAlloc_JPEG_8u(const Zeb8u* bits, const Zeb8u* vals,
                                                        DecodeHuffmanSpec** specOut);
ZEBAPI ZebStatus zebiDecodeHuffmanSpecFree_JPEG_8u(DecodeHuffmanSpec* spec);

/* State objects: Init clears them; InitAlloc allocates and clears (failure: -8). */
ZEBAPI ZebStatus zebiEncodeHuffmanStateInit_JPEG_8u(EncodeHuffmanState* state);
ZEBAPI ZebStatus zebiEncodeHuffmanStateInitAlloc_JPEG_8u(EncodeHuffmanState** stateOut);
ZEBAPI ZebStatus zebiEncodeHuffmanStateFree_JPEG_8u(EncodeHuffmanState* state);
ZEBAPI ZebStatus zebiDecodeHuffmanStateInit_JPEG_8u(DecodeHuffmanState* state);
ZEBAPI ZebStatus zebiDecodeHuffmanStateInitAlloc_JPEG_8u(DecodeHuffmanState** stateOut);
ZEBAPI ZebStatus zebiDecodeHuffmanStateFree_JPEG_8u(DecodeHuffmanState* state);

/* Optimal bits/vals from 256 symbol counts, code lengths limited to 16 with
 * the all-ones code of the longest length kept free. bits and vals are written
 * only on success; no counts at all give an empty table. */
ZEBAPI ZebStatus zebiEncodeHuffmanRawTableInit_JPEG_8u(const Zeb32s* statistics, Zeb8u* bits, Zeb8u* vals);

/* (end of JPEG Huffman tables and coder states) */

/* ------------------------------------------------------------------ JPEG baseline block coding */

/* Appends one 8x8 block (natural order) to the scan at *dstPos, with byte
 * stuffing, never beyond dstLen (-62). *lastDC is the DC prediction and takes
 * src[0]. A symbol without a code: -64. flush != 0 only pads the pending bits
 * with ones, resets the state and returns. */
ZEBAPI ZebStatus zebiEncodeHuffman8x8_JPEG_16s1u_C1(const Zeb16s* src, Zeb8u* dst, int dstLen, int* dstPos,
                                                    Zeb16s* lastDC, const EncodeHuffmanSpec* dcSpec,
                                                    const EncodeHuffmanSpec* acSpec, EncodeHuffmanState* state,
                                                    int flush);
/* Decodes one block from src[*srcPos .. srcLen) into dst (natural order).
 * Stops at a marker (stored in *marker). -62 buffer end, -63 bad code or a
 * marker in mid-code, -2 a run past the block. */
ZEBAPI ZebStatus zebiDecodeHuffman8x8_JPEG_1u16s_C1(const Zeb8u* src, int srcLen, int* srcPos, Zeb16s* dst,
                                                    Zeb16s* lastDC, int* marker, const DecodeHuffmanSpec* dcSpec,
                                                    const DecodeHuffmanSpec* acSpec, DecodeHuffmanState* state);
/* Stateless forms: positions in bits, no buffer limit. The encoder continues
 * a partial last byte; the decoder keeps its read-ahead in *prefetchedBits
 * and *prefetchedBitCount. */
ZEBAPI ZebStatus zebiEncodeHuffman8x8_Direct_JPEG_16s1u_C1(const Zeb16s* src, Zeb8u* dst, int* dstBitsLen,
                                                           Zeb16s* lastDC, const EncodeHuffmanSpec* dcSpec,
                                                           const EncodeHuffmanSpec* acSpec);
ZEBAPI ZebStatus zebiDecodeHuffman8x8_Direct_JPEG_1u16s_C1(const Zeb8u* src, int* srcBitsLen, Zeb16s* dst,
                                                           Zeb16s* lastDC, int* marker, Zeb32u* prefetchedBits,
                                                           int* prefetchedBitCount, const DecodeHuffmanSpec* dcSpec,
                                                           const DecodeHuffmanSpec* acSpec);

/* (end of JPEG baseline block coding) */

/* ------------------------------------------------------------------ JPEG progressive coding and statistics */

/* One block of one progressive scan per call. Ss..Se: the zigzag band (1..63),
 * Al: the point transform (0..13); a bad band or Al returns -5. DC scans keep
 * their pending bits in the baseline layout, AC scans right-justified in the
 * 64-bit accumulator (up to 63 bits between calls); a state passes between
 * the two only through a flush or an init. flush != 0 only ends the scan:
 * DC scans pad with seven one bits, AC scans first write the pending
 * end-of-band run and correction bits, pad to a byte with ones and reset. */
ZEBAPI ZebStatus zebiEncodeHuffman8x8_DCFirst_JPEG_16s1u_C1(const Zeb16s* src, Zeb8u* dst, int dstLen, int* dstPos,
                                                            Zeb16s* lastDC, int Al, const EncodeHuffmanSpec* dcSpec,
                                                            EncodeHuffmanState* state, int flush);
/* Writes bit Al of src[0]. */
ZEBAPI ZebStatus zebiEncodeHuffman8x8_DCRefine_JPEG_16s1u_C1(const Zeb16s* src, Zeb8u* dst, int dstLen, int* dstPos,
                                                             int Al, EncodeHuffmanState* state, int flush);
/* Empty bands join the state's end-of-band run (written at 0x7FFF or when a
 * later block has something to say). A magnitude of 12 bits or more: -63. */
ZEBAPI ZebStatus zebiEncodeHuffman8x8_ACFirst_JPEG_16s1u_C1(const Zeb16s* src, Zeb8u* dst, int dstLen, int* dstPos,
                                                            int Ss, int Se, int Al, const EncodeHuffmanSpec* acSpec,
                                                            EncodeHuffmanState* state, int flush);
/* Correction bits wait in the state until the run is written (at 0x7FFF
 * blocks or more than 937 bits). */
ZEBAPI ZebStatus zebiEncodeHuffman8x8_ACRefine_JPEG_16s1u_C1(const Zeb16s* src, Zeb8u* dst, int dstLen, int* dstPos,
                                                             int Ss, int Se, int Al, const EncodeHuffmanSpec* acSpec,
                                                             EncodeHuffmanState* state, int flush);
/* Decoders add to the caller's block (never cleared here); dst[0] only for
 * the DC scans. A corrupt run never leaves the 64 elements: -2 as in the
 * baseline decoder. -62 buffer end, -63 bad code or a marker in mid-code. */
ZEBAPI ZebStatus zebiDecodeHuffman8x8_DCFirst_JPEG_1u16s_C1(const Zeb8u* src, int srcLen, int* srcPos, Zeb16s* dst,
                                                            Zeb16s* lastDC, int* marker, int Al,
                                                            const DecodeHuffmanSpec* dcSpec, DecodeHuffmanState* state);
ZEBAPI ZebStatus zebiDecodeHuffman8x8_DCRefine_JPEG_1u16s_C1(const Zeb8u* src, int srcLen, int* srcPos, Zeb16s* dst,
                                                             int* marker, int Al, DecodeHuffmanState* state);
ZEBAPI ZebStatus zebiDecodeHuffman8x8_ACFirst_JPEG_1u16s_C1(const Zeb8u* src, int srcLen, int* srcPos, Zeb16s* dst,
                                                            int* marker, int Ss, int Se, int Al,
                                                            const DecodeHuffmanSpec* acSpec, DecodeHuffmanState* state);
ZEBAPI ZebStatus zebiDecodeHuffman8x8_ACRefine_JPEG_1u16s_C1(const Zeb8u* src, int srcLen, int* srcPos, Zeb16s* dst,
                                                             int* marker, int Ss, int Se, int Al,
                                                             const DecodeHuffmanSpec* acSpec,
                                                             DecodeHuffmanState* state);
/* Statistics: add 1 to the counter of every symbol the matching encoder would
 * write (the counters are only incremented). Baseline: DC category above 15
 * or AC above 14 returns -63. DCFirst: category above 11. The AC forms keep
 * eobRun and correctionCount in the state (no bits); ACFirst refuses a
 * category above 10; their flush counts the pending run and resets. */
ZEBAPI ZebStatus zebiGetHuffmanStatistics8x8_JPEG_16s_C1(const Zeb16s* src, Zeb32s* dcStatistics, Zeb32s* acStatistics,
                                                         Zeb16s* lastDC);
ZEBAPI ZebStatus zebiGetHuffmanStatistics8x8_DCFirst_JPEG_16s_C1(const Zeb16s* src, Zeb32s* dcStatistics,
                                                                 Zeb16s* lastDC, int Al);
ZEBAPI ZebStatus zebiGetHuffmanStatistics8x8_ACFirst_JPEG_16s_C1(const Zeb16s* src, Zeb32s* acStatistics, int Ss,
                                                                 int Se, int Al, EncodeHuffmanState* state, int flush);
ZEBAPI ZebStatus zebiGetHuffmanStatistics8x8_ACRefine_JPEG_16s_C1(const Zeb16s* src, Zeb32s* acStatistics, int Ss,
                                                                  int Se, int Al, EncodeHuffmanState* state, int flush);

/* (end of JPEG progressive coding and statistics) */

/* ------------------------------------------------------------------ JPEG lossless coding and predictors */

/* Predictors 1..7 on rows of 16-bit samples, read as signed values (shifts
 * arithmetic, results modulo 2^16). The first row of a scan predicts its first
 * sample as 1 << (precision - pointTransform - 1) and the rest from the left;
 * other rows predict their first sample from above. precision 2..16,
 * pointTransform >= 0, predictor 1..7, else -5. dst must not overlap the
 * inputs beyond what the element order allows. */
ZEBAPI ZebStatus zebiDiffPredFirstRow_JPEG_16s_C1(const Zeb16s* src, Zeb16s* dst, int width, int precision,
                                                  int pointTransform);
ZEBAPI ZebStatus zebiDiffPredRow_JPEG_16s_C1(const Zeb16s* src, const Zeb16s* prevRow, Zeb16s* dst, int width,
                                             int predictor);
ZEBAPI ZebStatus zebiReconstructPredFirstRow_JPEG_16s_C1(const Zeb16s* src, Zeb16s* dst, int width, int precision,
                                                         int pointTransform);
ZEBAPI ZebStatus zebiReconstructPredRow_JPEG_16s_C1(const Zeb16s* src, const Zeb16s* prevRow, Zeb16s* dst, int width,
                                                    int predictor);
/* One difference: the code of its category (0..16; -32768 is 16) and the
 * value bits (none for 16). flush != 0 pads with seven one bits and resets. */
ZEBAPI ZebStatus zebiEncodeHuffmanOne_JPEG_16s1u_C1(const Zeb16s* src, Zeb8u* dst, int dstLen, int* dstPos,
                                                    const EncodeHuffmanSpec* spec, EncodeHuffmanState* state,
                                                    int flush);
/* Category 16 and above decodes to 0x8000. */
ZEBAPI ZebStatus zebiDecodeHuffmanOne_JPEG_1u16s_C1(const Zeb8u* src, int srcLen, int* srcPos, Zeb16s* dst,
                                                    int* marker, const DecodeHuffmanSpec* spec,
                                                    DecodeHuffmanState* state);
/* A row of up to four interleaved components (components above 4 count as
 * 4): sample i of every component in turn, component c with specs[c]. */
ZEBAPI ZebStatus zebiEncodeHuffmanRow_JPEG_16s1u_P4C1(const Zeb16s* const* src, int width, int components, Zeb8u* dst,
                                                      int dstLen, int* dstPos, const EncodeHuffmanSpec* const* specs,
                                                      EncodeHuffmanState* state, int flush);
ZEBAPI ZebStatus zebiDecodeHuffmanRow_JPEG_1u16s_C1P4(const Zeb8u* src, int srcLen, int* srcPos, Zeb16s* const* dst,
                                                      int width, int components, int* marker,
                                                      const DecodeHuffmanSpec* const* specs,
                                                      DecodeHuffmanState* state);
/* Adds 1 to statistics[category of *src]. */
ZEBAPI ZebStatus zebiGetHuffmanStatisticsOne_JPEG_16s_C1(const Zeb16s* src, Zeb32s* statistics);

/* (end of JPEG lossless coding and predictors) */

/* ------------------------------------------------------------------ JPEG 2000 code-block encoder */

/* Code-block samples are 32-bit sign-magnitude words: bit 31 the sign, bits 30
 * to 0 the magnitude. The encoder models a whole block into a symbol store on
 * load; the store calls then run the MQ coder and the raw bit writer into the
 * caller's buffer, in as many calls as the caller likes. */

/* Code-style bit set (shared with the code-block decoders). */
enum {
    zebJ2kCausal = 1,               /* vertically causal contexts */
    zebJ2kBypass = 2,               /* raw significance and refinement passes from the fifth plane on */
    zebJ2kTermAll = 4,              /* every pass is terminated */
    zebJ2kResetContexts = 8,        /* contexts return to their initial states after every pass */
    zebJ2kSegmentationSymbols = 16, /* every cleanup pass ends with the symbols 1, 0, 1, 0 */
    zebJ2kExactLastPlane = 32       /* distortion of the lowest plane for exact reconstruction */
};

/* Subband selector of the zero-coding contexts; every other value selects the
 * LL and LH contexts. */
enum {
    zebJ2kSubbandHL = 2,
    zebJ2kSubbandHH = 3
};

/* MQ flush methods; every other value selects zebJ2kFlushFull. */
enum {
    zebJ2kFlushShortest = 1,
    zebJ2kFlushFixed = 2,
    zebJ2kFlushFull = 0
};

/* The MQ coder, raw writer, symbol store and pass table of an encoder state.
 * Nobody outside the library reads the fields. */
typedef struct ZebJ2kCoderState {
    uint32_t byteQueue[16];
    int32_t queueTail, queueHead;
    uint32_t pendingByte;
    int32_t skipFirstByte;
    uint32_t regA, regC, regCT;
    int32_t contextIndex[19];
    int32_t contextMps[19];
    int32_t byteOutCount;
    uint32_t rawLastWasFF, rawPartial, rawBitPosition;
    const uint8_t* passDecisions;
    const uint8_t* passContexts;
    int32_t passSymbolCount, passSymbolIndex;
    int32_t passBytesOut;
    int32_t mqActive;
    uint32_t flushMethod;
    int32_t passIsRaw;
    uint8_t* contextBuffer;
    uint8_t* decisionBuffer;
    int32_t passCount;
    int32_t passSymbols[110];
    int32_t passBytes[110];
    int32_t passRaw[110];
    int32_t passRate[110];
    int32_t bytesDelivered;
    int32_t symbolsWritten;
    int32_t passStart;
    int32_t storePass;
    int32_t resetContexts, termAll;
} ZebJ2kCoderState;

/* Encoder state behind the handle of zebiEncodeInitAlloc_JPEG2K; mark 0x4C4D5344. */
typedef struct ZebJ2kEncodeState {
    uint32_t mark;
    ZebJ2kCoderState* coder;
    int32_t passDistortion[109];
    int32_t passShift[109];
    int32_t planeShift;
    const int32_t* distortionTable;
    int32_t distortionMask;
    int32_t modelPass;
    int32_t exactLastPlane;
    int32_t tableRightShift, tableLeftShift;
    int32_t lowestPlane;
    uint32_t* flagRows;
} ZebJ2kEncodeState;

/* Allocates a state for blocks up to maxBlockSize. -6 for a side below 1; -9
 * (handle set to null) when allocation fails. */
ZEBAPI ZebStatus zebiEncodeInitAlloc_JPEG2K(ZebJ2kEncodeState** state, ZebSize maxBlockSize);
/* Releases a state made by zebiEncodeInitAlloc_JPEG2K. */
ZEBAPI ZebStatus zebiEncodeFree_JPEG2K(ZebJ2kEncodeState* state);
/* Models one code-block: the lowest coded plane is 31 - magnitudeBits. Gives
 * the significant bits of the block, its pass count and its number of
 * terminated segments. flushMethod: zebJ2kFlush...; reserved is not read. */
ZEBAPI ZebStatus zebiEncodeLoadCodeBlock_JPEG2K_32s_C1R(const Zeb32s* src, int srcStep, ZebSize blockSize,
                                                        ZebJ2kEncodeState* state, int subband, int magnitudeBits,
                                                        int flushMethod, int reserved, int codeStyle,
                                                        int* significantBits, int* passCount, int* segmentCount);
/* Stores codeword bytes of the loaded block: *length in is the capacity, out
 * the bytes stored; *more is 1 while passes remain. */
ZEBAPI ZebStatus zebiEncodeStoreBits_JPEG2K_1u(Zeb8u* dst, int* length, ZebJ2kEncodeState* state, int* more);
/* Bytes a decoder needs through the pass (valid once stored past it). */
ZEBAPI ZebStatus zebiEncodeGetRate_JPEG2K(const ZebJ2kEncodeState* state, int pass, int* rate);
/* Cumulative reduction of squared error through the pass, in units of the
 * squared step of the lowest coded plane. */
ZEBAPI ZebStatus zebiEncodeGetDist_JPEG2K(const ZebJ2kEncodeState* state, int pass, double* distortion);
/* Length in bytes of one terminated codeword segment. */
ZEBAPI ZebStatus zebiEncodeGetTermPassLen_JPEG2K(const ZebJ2kEncodeState* state, int segment, int* length);

/* (end of JPEG 2000 code-block encoder) */

/* ------------------------------------------------------------------ JPEG 2000 code-block decoders */

/* The decoders write 32-bit sign-magnitude words: bit 31 the sign, plane 0 at
 * bit 0. While decoding, a significant sample carries a 1 just below its last
 * decoded plane (the middle of the interval left open). */

/* Decoder flags, ORed with the code-style bits of the encoder (zebJ2kCausal
 * to zebJ2kSegmentationSymbols), which must equal the encoder's. */
enum {
    zebJ2kTruncateAtError = 0x10000,  /* one-call decoder: cut the block back to the plane in error */
    zebJ2kKeepBlock = 0x20000,        /* attach leaves the samples alone (the caller cleared them) */
    zebJ2kKeepHalfBit = 0x40000,      /* one-call decoder: the half-bits stay in the result */
    zebJ2kKeepFlagRows = 0x80000,     /* attach leaves the flag rows alone (they are zero already) */
    zebJ2kCheckTermination = 0x100000 /* test the end of each terminated MQ segment */
};

/* Caller-held decoder state, mark 0x434D4150. Its size comes from
 * zebiDecodeCBProgrGetStateSize_JPEG2K: these fixed fields, then the
 * neighbour-flag rows from the first 32-byte boundary behind them. The memory
 * must be aligned for a pointer. Nobody outside the library reads the fields. */
typedef struct ZebJ2kDecodeState {
    uint32_t mark;
    Zeb32s* dst;
    int32_t width, height, dstStep;
    int32_t plane;
    Zeb8u* scanSamples;  /* first sample and flag word of the scan */
    uint32_t* scanFlags;
    const uint8_t* zeroCodingTable;
    uint32_t* flagRows;
    int32_t flagStride; /* bytes */
    const uint8_t* mqData;
    int32_t mqLength, mqPosition;
    uint32_t regA, regC, regCT;
    int32_t contextIndex[19];
    int32_t contextMps[19];
    int32_t mqEnded;
    const uint8_t* rawData;
    int32_t rawLength, rawPosition;
    int32_t rawBitIndex;
    uint8_t rawByte;
    int32_t nextPass;
    int32_t passCounter;
    int32_t bypassPlane;
    int32_t flags;
    int32_t errorSeen;
    int32_t attached;
} ZebJ2kDecodeState;

/* Bytes of a state for blocks up to maxBlockSize. */
ZEBAPI ZebStatus zebiDecodeCBProgrGetStateSize_JPEG2K(ZebSize maxBlockSize, int* size);
/* Makes a state of memory of that size: writes the mark, no block attached. */
ZEBAPI ZebStatus zebiDecodeCBProgrInit_JPEG2K(ZebJ2kDecodeState* state);
/* Allocates and initialises a state; -9 (handle set to null) on failure. */
ZEBAPI ZebStatus zebiDecodeCBProgrInitAlloc_JPEG2K(ZebJ2kDecodeState** state, ZebSize maxBlockSize);
/* Releases a state made by zebiDecodeCBProgrInitAlloc_JPEG2K. */
ZEBAPI ZebStatus zebiDecodeCBProgrFree_JPEG2K(ZebJ2kDecodeState* state);
/* Attaches a block: planeCount coded planes (the first pass runs on plane
 * planeCount - 1), subband as for the encoder, flags as above. Clears the
 * block unless zebJ2kKeepBlock. */
ZEBAPI ZebStatus zebiDecodeCBProgrAttach_JPEG2K_32s_C1R(Zeb32s* dst, int dstStep, ZebSize blockSize,
                                                        ZebJ2kDecodeState* state, int subband, int planeCount,
                                                        int flags);
/* Sets the number of passes still to decode. */
ZEBAPI ZebStatus zebiDecodeCBProgrSetPassCounter_JPEG2K(int passes, ZebJ2kDecodeState* state);
/* Passes still to decode (counts down). */
ZEBAPI ZebStatus zebiDecodeCBProgrGetPassCounter_JPEG2K(const ZebJ2kDecodeState* state, int* passes);
/* The current plane, -1 when all planes are done. */
ZEBAPI ZebStatus zebiDecodeCBProgrGetCurBitPlaneNum_JPEG2K(const ZebJ2kDecodeState* state, int* plane);
/* Decodes one codeword segment: one pass under zebJ2kTermAll, else the passes
 * between two terminations. -112 when a pass reported damage (the passes are
 * decoded all the same); -180 with no block attached. */
ZEBAPI ZebStatus zebiDecodeCBProgrStep_JPEG2K(const Zeb8u* src, int length, ZebJ2kDecodeState* state);
/* Decodes a whole block from its segments (lengths in segmentLengths, bytes
 * back to back at src) with a state of zebiDecodeGetBufSize_JPEG2K bytes.
 * On damage (-112) errorPlane, if not null, receives the plane in error. */
ZEBAPI ZebStatus zebiDecodeCodeBlock_JPEG2K_1u32s_C1R(const Zeb8u* src, Zeb32s* dst, int dstStep, ZebSize blockSize,
                                                      int subband, int planeCount, int passCount,
                                                      const int* segmentLengths, int segmentCount, int flags,
                                                      int* errorPlane, ZebJ2kDecodeState* state);
/* Working-buffer size of the one-call decoder for blocks up to maxBlockSize. */
ZEBAPI ZebStatus zebiDecodeGetBufSize_JPEG2K(ZebSize maxBlockSize, int* size);


/* (end of JPEG 2000 code-block decoders) */

/* ------------------------------------------------------------------ JPEG 2000 component transforms */
/* Component transforms of the first three components. Planes: 0 R or Y,
 * 1 G or the blue difference, 2 B or the red difference; all three share one
 * step. Interleaved data hold R, G, B. RCT (reversible): Y0 = (I0 + 2*I1 + I2)
 * >> 2, Y1 = I2 - I1, Y2 = I0 - I1; inverse G = Y0 - ((Y1 + Y2) >> 2), R = Y2 + G,
 * B = Y1 + G. 16s results keep their low 16 bits, 32s wrap. ICT (irreversible):
 * 32f in single precision, no fused multiply-add; 32s and 16s in fixed point
 * with 14 fraction bits, 32s wrapping, 16s saturating. Every pixel is
 * independent, so the in-place (P3IR) forms give the same values. */
ZEBAPI ZebStatus zebiICTFwd_JPEG2K_16s_P3IR(Zeb16s* srcDst[3], int srcDstStep, ZebSize roiSize);
ZEBAPI ZebStatus zebiICTFwd_JPEG2K_32f_C3P3R(const Zeb32f* src, int srcStep, Zeb32f* dst[3], int dstStep, ZebSize roiSize);
ZEBAPI ZebStatus zebiICTFwd_JPEG2K_32f_P3IR(Zeb32f* srcDst[3], int srcDstStep, ZebSize roiSize);
ZEBAPI ZebStatus zebiICTFwd_JPEG2K_32s_P3IR(Zeb32s* srcDst[3], int srcDstStep, ZebSize roiSize);
ZEBAPI ZebStatus zebiICTInv_JPEG2K_16s_P3IR(Zeb16s* srcDst[3], int srcDstStep, ZebSize roiSize);
ZEBAPI ZebStatus zebiICTInv_JPEG2K_32f_P3C3R(const Zeb32f* const src[3], int srcStep, Zeb32f* dst, int dstStep, ZebSize roiSize);
ZEBAPI ZebStatus zebiICTInv_JPEG2K_32f_P3IR(Zeb32f* srcDst[3], int srcDstStep, ZebSize roiSize);
ZEBAPI ZebStatus zebiICTInv_JPEG2K_32s_P3IR(Zeb32s* srcDst[3], int srcDstStep, ZebSize roiSize);
ZEBAPI ZebStatus zebiRCTFwd_JPEG2K_16s_C3P3R(const Zeb16s* src, int srcStep, Zeb16s* dst[3], int dstStep, ZebSize roiSize);
ZEBAPI ZebStatus zebiRCTFwd_JPEG2K_16s_P3IR(Zeb16s* srcDst[3], int srcDstStep, ZebSize roiSize);
ZEBAPI ZebStatus zebiRCTFwd_JPEG2K_32s_C3P3R(const Zeb32s* src, int srcStep, Zeb32s* dst[3], int dstStep, ZebSize roiSize);
ZEBAPI ZebStatus zebiRCTFwd_JPEG2K_32s_P3IR(Zeb32s* srcDst[3], int srcDstStep, ZebSize roiSize);
ZEBAPI ZebStatus zebiRCTInv_JPEG2K_16s_P3C3R(const Zeb16s* const src[3], int srcStep, Zeb16s* dst, int dstStep, ZebSize roiSize);
ZEBAPI ZebStatus zebiRCTInv_JPEG2K_16s_P3IR(Zeb16s* srcDst[3], int srcDstStep, ZebSize roiSize);
ZEBAPI ZebStatus zebiRCTInv_JPEG2K_32s_P3C3R(const Zeb32s* const src[3], int srcStep, Zeb32s* dst, int dstStep, ZebSize roiSize);
ZEBAPI ZebStatus zebiRCTInv_JPEG2K_32s_P3IR(Zeb32s* srcDst[3], int srcDstStep, ZebSize roiSize);

/* (end of JPEG 2000 component transforms) */

/* ------------------------------------------------------------------ JPEG 2000 5/3 wavelet */
/* 5/3 reversible wavelet building blocks. Rows split a region horizontally,
 * columns vertically, into a low-pass and a high-pass region of roiSize each
 * (the interleaved side is twice as long in the filtered direction). phase 0:
 * the first sample has an even coordinate (low-pass first); any other value:
 * odd. Nothing is extended: the caller supplies x[-2]..x[2w] (phase 0) or
 * x[-1]..x[2w+1] going forward, and L[0]..L[w], H[-1]..H[w] (phase 0) or
 * L[-1]..L[w-1], H[-1]..H[w] going back, beyond the ends of rows or above and
 * below columns. The ColLift forms do one lifting step on one row pair:
 * forward dstHigh = src1 - ((src0 + src2) >> 1), dstLow = src0 + ((srcHigh +
 * dstHigh + 2) >> 2); inverse dstEven = srcLow - ((srcHigh0 + srcHigh1 + 2) >> 2),
 * dstOdd = srcHigh0 + ((dstEven + srcEven) >> 1). 16s results are truncated to
 * 16 bits, 32s wrap at 32 bits. */
ZEBAPI ZebStatus zebiWTFwdColLift_B53_JPEG2K_16s_C1(const Zeb16s* src0, const Zeb16s* src1, const Zeb16s* src2, Zeb16s* dstLow, const Zeb16s* srcHigh, Zeb16s* dstHigh, int width);
ZEBAPI ZebStatus zebiWTFwdColLift_B53_JPEG2K_32s_C1(const Zeb32s* src0, const Zeb32s* src1, const Zeb32s* src2, Zeb32s* dstLow, const Zeb32s* srcHigh, Zeb32s* dstHigh, int width);
ZEBAPI ZebStatus zebiWTFwdCol_B53_JPEG2K_16s_C1R(const Zeb16s* src, int srcStep, Zeb16s* dstLow, int dstLowStep, Zeb16s* dstHigh, int dstHighStep, ZebSize roiSize, int phase);
ZEBAPI ZebStatus zebiWTFwdCol_B53_JPEG2K_32s_C1R(const Zeb32s* src, int srcStep, Zeb32s* dstLow, int dstLowStep, Zeb32s* dstHigh, int dstHighStep, ZebSize roiSize, int phase);
ZEBAPI ZebStatus zebiWTFwdRow_B53_JPEG2K_16s_C1R(const Zeb16s* src, int srcStep, Zeb16s* dstLow, int dstLowStep, Zeb16s* dstHigh, int dstHighStep, ZebSize roiSize, int phase);
ZEBAPI ZebStatus zebiWTFwdRow_B53_JPEG2K_32s_C1R(const Zeb32s* src, int srcStep, Zeb32s* dstLow, int dstLowStep, Zeb32s* dstHigh, int dstHighStep, ZebSize roiSize, int phase);
ZEBAPI ZebStatus zebiWTInvColLift_B53_JPEG2K_16s_C1(const Zeb16s* srcLow, const Zeb16s* srcHigh0, const Zeb16s* srcHigh1, const Zeb16s* srcEven, Zeb16s* dstOdd, Zeb16s* dstEven, int width);
ZEBAPI ZebStatus zebiWTInvColLift_B53_JPEG2K_32s_C1(const Zeb32s* srcLow, const Zeb32s* srcHigh0, const Zeb32s* srcHigh1, const Zeb32s* srcEven, Zeb32s* dstOdd, Zeb32s* dstEven, int width);
ZEBAPI ZebStatus zebiWTInvCol_B53_JPEG2K_16s_C1R(const Zeb16s* srcLow, int srcLowStep, const Zeb16s* srcHigh, int srcHighStep, ZebSize roiSize, Zeb16s* dst, int dstStep, int phase);
ZEBAPI ZebStatus zebiWTInvCol_B53_JPEG2K_32s_C1R(const Zeb32s* srcLow, int srcLowStep, const Zeb32s* srcHigh, int srcHighStep, ZebSize roiSize, Zeb32s* dst, int dstStep, int phase);
ZEBAPI ZebStatus zebiWTInvRow_B53_JPEG2K_16s_C1R(const Zeb16s* srcLow, int srcLowStep, const Zeb16s* srcHigh, int srcHighStep, ZebSize roiSize, Zeb16s* dst, int dstStep, int phase);
ZEBAPI ZebStatus zebiWTInvRow_B53_JPEG2K_32s_C1R(const Zeb32s* srcLow, int srcLowStep, const Zeb32s* srcHigh, int srcHighStep, ZebSize roiSize, Zeb32s* dst, int dstStep, int phase);

/* (end of JPEG 2000 5/3 wavelet) */

/* ------------------------------------------------------------------ JPEG 2000 9/7 wavelet */
/* 9/7 irreversible wavelet building blocks, in the shape of the 5/3 ones:
 * rows (16s, 32s, 32f) and float columns split a region into two bands of
 * roiSize each; phase 0 puts the first sample at an even coordinate. Nothing
 * is extended: the caller supplies x[-4]..x[2w+2] (phase 0) or x[-3]..x[2w+3]
 * going forward, and L[-1]..L[w+1] (phase 0) or L[-2]..L[w], with
 * H[-2]..H[w+1], going back. 16s rows work with 15 fraction bits and
 * saturation inside the row and take their end samples from the 32s form;
 * 32s works with 16 fraction bits and wraps its sums; 32f is single
 * precision. The ColLift forms advance a vertical transform by one row pair
 * with the caller's ring of rows: forward lowPrev, highOld and highPrev are
 * updated in place, lowNew and highNew written; inverse evenPrev and oddPrev
 * are updated, oddNew and evenNew written, evenOld only read. */

ZEBAPI ZebStatus zebiWTFwdColLift_D97_JPEG2K_16s_C1(const Zeb16s* src0, const Zeb16s* src1, const Zeb16s* src2, Zeb16s* lowPrev, Zeb16s* lowNew, Zeb16s* highOld, Zeb16s* highPrev, Zeb16s* highNew, int width);
ZEBAPI ZebStatus zebiWTFwdColLift_D97_JPEG2K_32f_C1(const Zeb32f* src0, const Zeb32f* src1, const Zeb32f* src2, Zeb32f* lowPrev, Zeb32f* lowNew, Zeb32f* highOld, Zeb32f* highPrev, Zeb32f* highNew, int width);
ZEBAPI ZebStatus zebiWTFwdColLift_D97_JPEG2K_32s_C1(const Zeb32s* src0, const Zeb32s* src1, const Zeb32s* src2, Zeb32s* lowPrev, Zeb32s* lowNew, Zeb32s* highOld, Zeb32s* highPrev, Zeb32s* highNew, int width);
ZEBAPI ZebStatus zebiWTFwdCol_D97_JPEG2K_32f_C1R(const Zeb32f* src, int srcStep, Zeb32f* dstLow, int dstLowStep, Zeb32f* dstHigh, int dstHighStep, ZebSize roiSize, int phase);
ZEBAPI ZebStatus zebiWTFwdRow_D97_JPEG2K_16s_C1R(const Zeb16s* src, int srcStep, Zeb16s* dstLow, int dstLowStep, Zeb16s* dstHigh, int dstHighStep, ZebSize roiSize, int phase);
ZEBAPI ZebStatus zebiWTFwdRow_D97_JPEG2K_32f_C1R(const Zeb32f* src, int srcStep, Zeb32f* dstLow, int dstLowStep, Zeb32f* dstHigh, int dstHighStep, ZebSize roiSize, int phase);
ZEBAPI ZebStatus zebiWTFwdRow_D97_JPEG2K_32s_C1R(const Zeb32s* src, int srcStep, Zeb32s* dstLow, int dstLowStep, Zeb32s* dstHigh, int dstHighStep, ZebSize roiSize, int phase);
ZEBAPI ZebStatus zebiWTInvColLift_D97_JPEG2K_16s_C1(const Zeb16s* srcLow, const Zeb16s* srcHigh0, const Zeb16s* srcHigh1, const Zeb16s* evenOld, Zeb16s* oddPrev, Zeb16s* evenPrev, Zeb16s* oddNew, Zeb16s* evenNew, int width);
ZEBAPI ZebStatus zebiWTInvColLift_D97_JPEG2K_32f_C1(const Zeb32f* srcLow, const Zeb32f* srcHigh0, const Zeb32f* srcHigh1, const Zeb32f* evenOld, Zeb32f* oddPrev, Zeb32f* evenPrev, Zeb32f* oddNew, Zeb32f* evenNew, int width);
ZEBAPI ZebStatus zebiWTInvColLift_D97_JPEG2K_32s_C1(const Zeb32s* srcLow, const Zeb32s* srcHigh0, const Zeb32s* srcHigh1, const Zeb32s* evenOld, Zeb32s* oddPrev, Zeb32s* evenPrev, Zeb32s* oddNew, Zeb32s* evenNew, int width);
ZEBAPI ZebStatus zebiWTInvCol_D97_JPEG2K_32f_C1R(const Zeb32f* srcLow, int srcLowStep, const Zeb32f* srcHigh, int srcHighStep, ZebSize roiSize, Zeb32f* dst, int dstStep, int phase);
ZEBAPI ZebStatus zebiWTInvRow_D97_JPEG2K_16s_C1R(const Zeb16s* srcLow, int srcLowStep, const Zeb16s* srcHigh, int srcHighStep, ZebSize roiSize, Zeb16s* dst, int dstStep, int phase);
ZEBAPI ZebStatus zebiWTInvRow_D97_JPEG2K_32f_C1R(const Zeb32f* srcLow, int srcLowStep, const Zeb32f* srcHigh, int srcHighStep, ZebSize roiSize, Zeb32f* dst, int dstStep, int phase);
ZEBAPI ZebStatus zebiWTInvRow_D97_JPEG2K_32s_C1R(const Zeb32s* srcLow, int srcLowStep, const Zeb32s* srcHigh, int srcHighStep, ZebSize roiSize, Zeb32s* dst, int dstStep, int phase);

/* (end of JPEG 2000 9/7 wavelet) */

/* ------------------------------------------------------------------ JPEG 2000 whole-block wavelet drivers */
/* One complete level of the 5/3 or 9/7 transform on a region, with the
 * symmetric extension, the parity of rect->x and rect->y, and lines of one
 * and two samples. The result keeps the low band first along each line: LL
 * top left, LH (vertically high-pass) bottom left, HL top right, HH bottom
 * right; the C1R forms take or give the four bands through arrays of four
 * pointers and steps in that order (LL, LH, HL, HH). buffer is caller work
 * memory of at least the size that the matching GetBufSize form reports
 * (in bytes; 0 is possible, buffer must still be non-null). The C1IR forms
 * do not check the region's size. 16s 9/7 works with 14 fraction bits and
 * truncates to 16 bits; 32s 9/7 lifts in single precision. */

ZEBAPI ZebStatus zebiWTFwd_B53_JPEG2K_16s_C1IR(Zeb16s* srcDst, int srcDstStep, const ZebTileRect* rect, Zeb8u* buffer);
ZEBAPI ZebStatus zebiWTFwd_B53_JPEG2K_16s_C1R(const Zeb16s* src, int srcStep, const ZebTileRect* rect, Zeb16s* const dst[4], const int dstStep[4], Zeb8u* buffer);
ZEBAPI ZebStatus zebiWTFwd_B53_JPEG2K_32s_C1IR(Zeb32s* srcDst, int srcDstStep, const ZebTileRect* rect, Zeb8u* buffer);
ZEBAPI ZebStatus zebiWTFwd_B53_JPEG2K_32s_C1R(const Zeb32s* src, int srcStep, const ZebTileRect* rect, Zeb32s* const dst[4], const int dstStep[4], Zeb8u* buffer);
ZEBAPI ZebStatus zebiWTFwd_D97_JPEG2K_16s_C1IR(Zeb16s* srcDst, int srcDstStep, const ZebTileRect* rect, Zeb8u* buffer);
ZEBAPI ZebStatus zebiWTFwd_D97_JPEG2K_16s_C1R(const Zeb16s* src, int srcStep, const ZebTileRect* rect, Zeb16s* const dst[4], const int dstStep[4], Zeb8u* buffer);
ZEBAPI ZebStatus zebiWTFwd_D97_JPEG2K_32s_C1IR(Zeb32s* srcDst, int srcDstStep, const ZebTileRect* rect, Zeb8u* buffer);
ZEBAPI ZebStatus zebiWTFwd_D97_JPEG2K_32s_C1R(const Zeb32s* src, int srcStep, const ZebTileRect* rect, Zeb32s* const dst[4], const int dstStep[4], Zeb8u* buffer);
ZEBAPI ZebStatus zebiWTGetBufSize_B53_JPEG2K_16s_C1IR(const ZebTileRect* rect, int* size);
ZEBAPI ZebStatus zebiWTGetBufSize_B53_JPEG2K_16s_C1R(const ZebTileRect* rect, int* size);
ZEBAPI ZebStatus zebiWTGetBufSize_B53_JPEG2K_32s_C1IR(const ZebTileRect* rect, int* size);
ZEBAPI ZebStatus zebiWTGetBufSize_B53_JPEG2K_32s_C1R(const ZebTileRect* rect, int* size);
ZEBAPI ZebStatus zebiWTGetBufSize_D97_JPEG2K_16s_C1IR(const ZebTileRect* rect, int* size);
ZEBAPI ZebStatus zebiWTGetBufSize_D97_JPEG2K_16s_C1R(const ZebTileRect* rect, int* size);
ZEBAPI ZebStatus zebiWTGetBufSize_D97_JPEG2K_32s_C1IR(const ZebTileRect* rect, int* size);
ZEBAPI ZebStatus zebiWTGetBufSize_D97_JPEG2K_32s_C1R(const ZebTileRect* rect, int* size);
ZEBAPI ZebStatus zebiWTInv_B53_JPEG2K_16s_C1IR(Zeb16s* srcDst, int srcDstStep, const ZebTileRect* rect, Zeb8u* buffer);
ZEBAPI ZebStatus zebiWTInv_B53_JPEG2K_16s_C1R(const Zeb16s* const src[4], const int srcStep[4], Zeb16s* dst, int dstStep, const ZebTileRect* rect, Zeb8u* buffer);
ZEBAPI ZebStatus zebiWTInv_B53_JPEG2K_32s_C1IR(Zeb32s* srcDst, int srcDstStep, const ZebTileRect* rect, Zeb8u* buffer);
ZEBAPI ZebStatus zebiWTInv_B53_JPEG2K_32s_C1R(const Zeb32s* const src[4], const int srcStep[4], Zeb32s* dst, int dstStep, const ZebTileRect* rect, Zeb8u* buffer);
ZEBAPI ZebStatus zebiWTInv_D97_JPEG2K_16s_C1IR(Zeb16s* srcDst, int srcDstStep, const ZebTileRect* rect, Zeb8u* buffer);
ZEBAPI ZebStatus zebiWTInv_D97_JPEG2K_16s_C1R(const Zeb16s* const src[4], const int srcStep[4], Zeb16s* dst, int dstStep, const ZebTileRect* rect, Zeb8u* buffer);
ZEBAPI ZebStatus zebiWTInv_D97_JPEG2K_32s_C1IR(Zeb32s* srcDst, int srcDstStep, const ZebTileRect* rect, Zeb8u* buffer);
ZEBAPI ZebStatus zebiWTInv_D97_JPEG2K_32s_C1R(const Zeb32s* const src[4], const int srcStep[4], Zeb32s* dst, int dstStep, const ZebTileRect* rect, Zeb8u* buffer);

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
