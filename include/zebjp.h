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

/* (end of JPEG forward colour conversion) */

/* ------------------------------------------------------------------ JPEG inverse colour conversion */

/* (end of JPEG inverse colour conversion) */

/* ------------------------------------------------------------------ JPEG up- and down-sampling */

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
