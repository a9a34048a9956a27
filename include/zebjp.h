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

/* (end of JPEG Huffman specifications and states) */

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
