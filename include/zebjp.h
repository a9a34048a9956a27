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
