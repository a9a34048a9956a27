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

/* (end of JPEG MCU block encoders) */

/* ------------------------------------------------------------------ JPEG MCU block decoders */

/* (end of JPEG MCU block decoders) */

/* ------------------------------------------------------------------ JPEG quantisation tables and quantisers */

/* (end of JPEG quantisation tables and quantisers) */

/* ------------------------------------------------------------------ JPEG forward DCT */

/* (end of JPEG forward DCT) */

/* ------------------------------------------------------------------ JPEG inverse DCT */

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

/* (end of TIFF rows) */

#ifdef __cplusplus
}
#endif

#endif /* ZEBJP_H */
