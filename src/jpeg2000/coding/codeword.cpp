// Code-block encoder, output half: runs the stored symbols through the MQ
// coder or the raw bit writer into the caller's buffer, pass by pass, and
// keeps the rate and length of every pass. A store call may stop at any
// byte; everything needed to go on lives in the coder record.
#include <immintrin.h>

#include <algorithm>
#include <array>
#include <cmath>

#include "frame/impl.h"
#include "jpeg2000/coding/encoder.h"

namespace zeb::j2k {

namespace {

// A context's state in one byte (row * 2 + more probable symbol), shared
// with the decoders.
constexpr const auto& kSteps = kMqPackedRows;

// The MQ registers of one run, kept in locals. Bytes go either into the
// queue or, while the caller's buffer has room for a whole symbol's output,
// straight into the buffer.
struct Mq {
    uint32_t a, c, ct, b;
    uint32_t* queue;
    int tail;
    int outCount;
    uint8_t* direct = nullptr;
    int pos = 0;
    int skip = 0;

    template <bool Direct>
    void push() {
        if (Direct) {
            if (skip)
                skip = 0;
            else
                direct[pos++] = static_cast<uint8_t>(b);
        } else {
            queue[tail++] = b;
        }
        ++outCount;
    }
    template <bool Direct = false>
    void byteOut() {
        if (b != 0xFF) {
            if (c >= 0x8000000u) {
                ++b;
                if (b == 0xFF) {
                    c &= 0x7FFFFFFu;
                    byteOutAfterFF<Direct>();
                    return;
                }
            }
            push<Direct>();
            b = (c >> 19) & 0xFF;
            c &= 0x7FFFFu;
            ct = 8;
            return;
        }
        byteOutAfterFF<Direct>();
    }
    template <bool Direct>
    void byteOutAfterFF() {
        push<Direct>();
        b = (c >> 20) & 0xFF;
        c &= 0xFFFFFu;
        ct = 7;
    }
    template <bool Direct>
    void renormalise() {
        // All shifts at once when no byte-out falls among them.
        const uint32_t n = static_cast<uint32_t>(__builtin_clz(a)) - 16;
        if (n < ct) {
            a <<= n;
            c <<= n;
            ct -= n;
            return;
        }
        do {
            a <<= 1;
            c <<= 1;
            if (--ct == 0) byteOut<Direct>();
        } while ((a & 0x8000u) == 0);
    }
    // Codes decision d in a context, without branches on the decision: with
    // x = (d is the MPS) XOR (A - Qe < Qe), C grows by Qe and A keeps A - Qe
    // when x is set, and A becomes Qe otherwise. The context moves on only
    // when A needs renormalising; a renormalisation without byte-out is one
    // shift.
    template <bool Direct>
    void encode(uint32_t d, uint8_t& state) {
        const uint32_t st = state;
        const MqPackedRow& s = kSteps[st];
        const uint32_t qe = s.qe;
        const uint32_t aSub = a - qe;
        const uint32_t isMps = (d ^ st ^ 1u) & 1u;
        const uint32_t mask = 0u - (isMps ^ static_cast<uint32_t>(aSub < qe));
        c += qe & mask;
        a = (aSub & mask) | (qe & ~mask);
        // The context stays only on an MPS that leaves A at 0x8000 or above;
        // deciding that from A - Qe keeps the count of leading zeros off the
        // context's path.
        const uint32_t next = s.nextLps ^ ((s.nextMps ^ s.nextLps) & (0u - isMps));
        const uint32_t keep = 0u - (isMps & static_cast<uint32_t>(aSub >= 0x8000u));
        state = static_cast<uint8_t>((st & keep) | (next & ~keep));
        const uint32_t n = static_cast<uint32_t>(__builtin_clz(a)) - 16;
        if (n < ct) {
            a <<= n;
            c <<= n;
            ct -= n;
            return;
        }
        do {
            a <<= 1;
            c <<= 1;
            if (--ct == 0) byteOut<Direct>();
        } while ((a & 0x8000u) == 0);
    }

    void flushFull() {
        uint32_t t = c | 0xFFFFu;
        if (t >= c + a) t -= 0x8000u;
        c = t << ct;
        byteOut();
        c = (c | 0x7FFFu) << ct;
        byteOut();
        c |= 0x7FFFu;
        if (b != 0xFF) {
            c <<= ct;
            byteOut();
        }
    }
    void flushFixed() {
        int n = 12 - static_cast<int>(ct);
        while (n > 0) {
            c <<= ct;
            byteOut();
            n -= static_cast<int>(ct);
        }
        if (b != 0xFF) {
            c <<= ct;
            byteOut();
        }
    }
    // The shortest string that still decodes when followed by 0xFF fill.
    void flushShortest() {
        uint32_t low = c << ct;
        uint32_t high = (c + a) << ct;
        uint32_t l = b, h = b;
        bool stuffed = false, emitted = false;
        auto emit = [&](uint32_t v) {
            if (emitted) queue[tail++] = b;
            b = v;
            emitted = true;
            ++outCount;
        };
        if ((low & (1u << 27)) && b == 255) {
            l = low >> 20;
            h = high >> 20;
            high = (high & 0xFFFFFu) << 7;
            low <<= 7;
            stuffed = true;
        } else {
            if (low & (1u << 27)) ++l;
            if (high & (1u << 27)) ++h;
        }
        for (;;) {
            const bool wasStuffed = stuffed;
            if (stuffed) {
                if (l <= 127 && h > 127) break;
                emit(255);
                stuffed = false;
            }
            if (!wasStuffed && l <= 255 && h > 255) break;
            if (l >= 255) {
                h = ((h - l) << 7) | ((high >> 20) & 127);
                l = (low >> 20) & 127;
                low <<= 7;
                high <<= 7;
                stuffed = true;
            } else {
                emit(l);
                h = ((h - l) << 8) | ((high >> 19) & 255);
                l = (low >> 19) & 255;
                low <<= 8;
                high <<= 8;
            }
        }
        if (emitted) queue[tail++] = b;
    }
};

// A context's state as one 64-bit word, so that the coder reads everything a
// decision needs with one load and one shift: the low half serves decision
// 0, the high half decision 1. Each half holds Qe in bits 0 to 15, the state
// number (row * 2 + MPS) that follows a renormalisation in bits 20 to 26, and 1 in bit 31
// when the decision is the more probable symbol. Bits 27 to 30 of the low
// half and 27 to 29 of the high half hold the word's own state number.
constexpr std::array<uint64_t, 94> makeStateWords() {
    std::array<uint64_t, 94> t{};
    for (int st = 0; st < 94; ++st) {
        const uint32_t qe = kSteps[st].qe;
        uint64_t w = 0;
        for (uint32_t d = 0; d < 2; ++d) {
            const uint32_t isMps = (static_cast<uint32_t>(st) & 1u) == d ? 1u : 0u;
            const uint32_t next = isMps ? kSteps[st].nextMps : kSteps[st].nextLps;
            const uint32_t own = d == 0 ? (st & 15) : (st >> 4);
            const uint32_t half = qe | (next << 20) | (own << 27) | (isMps << 31);
            w |= uint64_t{half} << (32 * d);
        }
        t[st] = w;
    }
    return t;
}
constexpr auto kStateWords = makeStateWords();
constexpr uint32_t stateOfWord(uint64_t w) {
    return ((static_cast<uint32_t>(w) >> 27) & 15u) | (((static_cast<uint32_t>(w >> 32) >> 27) & 7u) << 4);
}

// Codes symbols idx to limit - 1 straight into the caller's buffer with the
// registers in locals; the room for two bytes per symbol has been checked.
// Same arithmetic as Mq::encode with few instructions per symbol: the new
// state is chosen between the word in hand and its successor, loaded ahead,
// and the renormalisation is one shift unless a byte-out falls within it.
[[gnu::noinline, gnu::target("lzcnt")]] void encodeDirectRun(Mq& m, const uint8_t* dec, const uint8_t* ctx,
                                                             int idx, int limit, uint8_t* states) {
    uint64_t words[kContextCount];
    for (int i = 0; i < kContextCount; ++i) words[i] = kStateWords[states[i]];
    uint32_t a = m.a, c = m.c, ct = m.ct, b = m.b;
    uint8_t* const outStart = m.direct + m.pos;
    uint8_t* out = outStart;
    const int skipBefore = m.skip;
    // One index, counting up to 0, walks both symbol buffers.
    const uint8_t* const ctxEnd = ctx + limit;
    const uint8_t* const decEnd = dec + limit;
    for (std::ptrdiff_t i = idx - limit; i != 0; ++i) {
        const uint32_t cx = ctxEnd[i];
        const uint64_t e = words[cx];
        const uint32_t h = static_cast<uint32_t>(e >> (32u * decEnd[i]));
        const uint32_t qe = h & 0xFFFFu;
        const uint64_t ne = kStateWords[(h >> 20) & 0x7Fu];
        const uint32_t aSub = a - qe;
        // x = (d is the MPS) XOR (A - Qe < Qe), as a mask from the sign of
        // A - 2 Qe and the MPS bit.
        const uint32_t mask = static_cast<uint32_t>(static_cast<int32_t>((aSub - qe) ^ (h & 0x80000000u)) >> 31);
        c += qe & mask;
        a = qe ^ ((aSub ^ qe) & mask);
        uint32_t n = _lzcnt_u32(a) - 16;
        a <<= n;
        // The state stays exactly when A needs no renormalisation: an MPS
        // leaving A at 0x8000 or above (after an LPS, A is below 0x8000).
        const uint64_t keep = static_cast<uint64_t>((static_cast<int64_t>(n) - 1) >> 63);
        words[cx] = ne ^ ((e ^ ne) & keep);
        if (n < ct) {
            c <<= n;
            ct -= n;
            continue;
        }
        // Shifts up to each byte-out, then the rest.
        do {
            c <<= ct;
            n -= ct;
            if (b != 0xFF) {
                if (c >= 0x8000000u) {
                    ++b;
                    if (b == 0xFF) {
                        c &= 0x7FFFFFFu;
                        goto afterFF;
                    }
                }
                if (m.skip)
                    m.skip = 0;
                else
                    *out++ = static_cast<uint8_t>(b);
                b = (c >> 19) & 0xFF;
                c &= 0x7FFFFu;
                ct = 8;
                continue;
            }
        afterFF:
            if (m.skip)
                m.skip = 0;
            else
                *out++ = static_cast<uint8_t>(b);
            b = (c >> 20) & 0xFF;
            c &= 0xFFFFFu;
            ct = 7;
        } while (n >= ct);
        c <<= n;
        ct -= n;
    }
    m.a = a;
    m.c = c;
    m.ct = ct;
    m.b = b;
    m.pos += static_cast<int>(out - outStart);
    m.outCount += static_cast<int>(out - outStart) + (skipBefore - m.skip);
    for (int i = 0; i < kContextCount; ++i) states[i] = static_cast<uint8_t>(stateOfWord(words[i]));
}

struct Output {
    uint8_t* dst;
    int room;
    int stored;
};

Mq loadMq(ZebJ2kCoderState* c) {
    Mq m;
    m.a = c->regA;
    m.c = c->regC;
    m.ct = c->regCT;
    m.b = c->pendingByte;
    m.queue = c->byteQueue;
    m.tail = c->queueTail;
    m.outCount = c->byteOutCount;
    return m;
}
void saveMq(ZebJ2kCoderState* c, const Mq& m) {
    c->regA = m.a;
    c->regC = m.c;
    c->regCT = m.ct;
    c->pendingByte = m.b;
    c->queueTail = m.tail;
    c->byteOutCount = m.outCount;
}

// Copies queued bytes to the caller's buffer, dropping the first byte after a
// coder start.
inline void deliver(ZebJ2kCoderState* c, int tail, Output& out) {
    int head = c->queueHead;
    if (c->skipFirstByte && head < tail) {
        ++head;
        c->skipFirstByte = 0;
    }
    const int k = std::min(out.room, tail - head);
    for (int i = 0; i < k; ++i) out.dst[out.stored + i] = static_cast<uint8_t>(c->byteQueue[head + i]);
    head += k;
    out.stored += k;
    out.room -= k;
    c->passBytesOut += k;
    c->queueHead = head;
}

// Runs the current MQ pass as far as the buffer allows; true when complete.
bool mqPass(ZebJ2kCoderState* c, bool terminate, Output& out) {
    Mq m = loadMq(c);
    const uint8_t* dec = c->passDecisions;
    const uint8_t* ctx = c->passContexts;
    int idx = c->passSymbolIndex;
    const int count = c->passSymbolCount;
    uint8_t states[kContextCount];
    for (int i = 0; i < kContextCount; ++i)
        states[i] = static_cast<uint8_t>(2 * c->contextIndex[i] + c->contextMps[i]);
    for (;;) {
        if (c->queueHead != m.tail) deliver(c, m.tail, out);
        if (out.room == 0 || idx == count) break;
        c->queueHead = 0;
        m.tail = 0;
        c->mqActive = 1;
        if (out.room >= 2) {
            // One symbol puts out at most two bytes: while they fit, they go
            // straight to the buffer, as the queue would deliver them.
            m.direct = out.dst + out.stored;
            m.pos = 0;
            m.skip = c->skipFirstByte;
            // Each round codes as many symbols as the room left can take at
            // two bytes each, without a test per symbol.
            while (idx < count && out.room - m.pos >= 2) {
                const int limit = idx + std::min(count - idx, (out.room - m.pos) / 2);
                encodeDirectRun(m, dec, ctx, idx, limit, states);
                idx = limit;
            }
            out.stored += m.pos;
            out.room -= m.pos;
            c->passBytesOut += m.pos;
            c->skipFirstByte = m.skip;
            continue;
        }
        m.encode<false>(dec[idx], states[ctx[idx]]);
        ++idx;
    }
    for (int i = 0; i < kContextCount; ++i) {
        c->contextIndex[i] = states[i] >> 1;
        c->contextMps[i] = states[i] & 1;
    }
    c->passSymbolIndex = idx;
    if (!terminate) {
        saveMq(c, m);
        return idx == count;
    }
    if (out.room == 0) {
        saveMq(c, m);
        return false;
    }
    if (c->mqActive) {
        c->queueHead = 0;
        m.tail = 0;
        switch (c->flushMethod) {
            case 1: m.flushShortest(); break;
            case 2: m.flushFixed(); break;
            default: m.flushFull(); break;
        }
        c->mqActive = 0;
        deliver(c, m.tail, out);
    }
    saveMq(c, m);
    if (c->queueHead < c->queueTail || out.room == 0) return false;
    restartMq(c);
    return true;
}

inline bool rawBegun(const ZebJ2kCoderState* c) {
    return c->rawLastWasFF ? c->rawBitPosition != 6 : c->rawBitPosition != 7;
}

// Runs the current raw pass as far as the buffer allows; true when complete.
bool rawPass(ZebJ2kCoderState* c, bool terminate, Output& out) {
    const uint8_t* dec = c->passDecisions;
    int idx = c->passSymbolIndex;
    const int count = c->passSymbolCount;
    uint32_t partial = c->rawPartial;
    uint32_t pos = c->rawBitPosition;
    uint32_t lastFF = c->rawLastWasFF;
    int written = 0;
    while (idx < count) {
        // Eight decisions at once while the writer sits at a byte boundary.
        if (pos == 7 && count - idx >= 8 && out.room > 0) {
            uint32_t v = 0;
            for (int k = 0; k < 8; ++k) v = (v << 1) | (dec[idx + k] & 1u);
            idx += 8;
            out.dst[out.stored++] = static_cast<uint8_t>(v);
            --out.room;
            ++written;
            lastFF = v == 0xFF;
            pos = lastFF ? 6 : 7;
            continue;
        }
        if (pos == 0 && out.room == 0) break;
        partial |= (dec[idx] & 1u) << pos;
        ++idx;
        if (pos == 0) {
            out.dst[out.stored++] = static_cast<uint8_t>(partial);
            --out.room;
            ++written;
            lastFF = partial == 0xFF;
            partial = 0;
            pos = lastFF ? 6 : 7;
        } else {
            --pos;
        }
    }
    c->passSymbolIndex = idx;
    c->rawPartial = partial;
    c->rawBitPosition = pos;
    c->rawLastWasFF = lastFF;
    c->passBytesOut += written;
    if (idx < count) return false;
    if (!terminate) return true;
    if (out.room == 0) return false;
    if (rawBegun(c)) {
        out.dst[out.stored++] = static_cast<uint8_t>(c->rawPartial | (42u >> (6 - c->rawBitPosition)));
        --out.room;
        ++c->passBytesOut;
    }
    c->rawLastWasFF = 0;
    c->rawPartial = 0;
    c->rawBitPosition = 7;
    return true;
}

// Bytes still to come for an MQ pass that ends without termination.
inline int mqLengthEstimate(const ZebJ2kCoderState* c) {
    const int ct = static_cast<int>(c->regCT);
    return 3 + (c->byteOutCount != 0 ? 1 : 0) + ((27 - ct) > 22 + (c->pendingByte < 254 ? 1 : 0) ? 1 : 0);
}

void stepToNextPass(ZebJ2kCoderState* c) {
    const int i = c->storePass;
    c->bytesDelivered += c->passBytesOut;
    int extra = 0;
    if (c->passIsRaw)
        extra = rawBegun(c) ? 1 : 0;
    else if (c->mqActive)
        extra = mqLengthEstimate(c);
    c->passRate[i] = c->bytesDelivered + extra;
    if (extra == 0)
        for (int j = i; j > 0 && c->passRate[j] < c->passRate[j - 1]; --j) c->passRate[j - 1] = c->passRate[j];
    c->passBytes[i] = c->passBytesOut;
    // Raw symbols hold their place in the context buffer too.
    c->passDecisions += c->passSymbolCount;
    c->passContexts += c->passSymbolCount;
    c->storePass = i + 1;
    c->passSymbolIndex = 0;
    c->passBytesOut = 0;
    if (c->storePass < c->passCount) {
        c->passSymbolCount = c->passSymbols[c->storePass];
        c->passIsRaw = c->passRaw[c->storePass];
    } else {
        c->passSymbolCount = 0;
    }
    if (c->resetContexts) resetContexts(c);
}

}  // namespace

void storeBits(ZebJ2kEncodeState* st, uint8_t* dst, int* length, int* more) {
    ZebJ2kCoderState* c = st->coder;
    Output out{dst, *length, 0};
    while (c->storePass < c->passCount && out.room > 0) {
        const int i = c->storePass;
        const bool terminate = c->termAll || i == c->passCount - 1 || c->passRaw[i] != c->passRaw[i + 1];
        const bool done = c->passIsRaw ? rawPass(c, terminate, out) : mqPass(c, terminate, out);
        if (!done) break;
        stepToNextPass(c);
    }
    *length = out.stored;
    // Final-byte rule: a rate whose last byte is a stored 0xFF loses it.
    const int total = c->bytesDelivered + c->passBytesOut;
    const int first = total - out.stored;
    for (int i = 0; i < c->storePass; ++i) {
        const int r = c->passRate[i];
        if (r > first && r <= total && dst[r - 1 - first] == 0xFF) c->passRate[i] = r - 1;
    }
    *more = c->storePass < c->passCount ? 1 : 0;
}

}  // namespace zeb::j2k

using namespace zeb::j2k;

namespace {
inline bool blockLoaded(const ZebJ2kEncodeState* st) { return st->distortionTable != nullptr; }
}  // namespace

ZebStatus zebimpl::zebiEncodeStoreBits_JPEG2K_1u(Zeb8u* dst, int* length, ZebJ2kEncodeState* state, int* more) {
    if (!state) return zebStatusNullPointer;
    if (state->mark != kEncodeMark) return zebStatusBadContext;
    if (!dst || !length || !more) return zebStatusNullPointer;
    if (*length < 1) return zebStatusBadSize;
    storeBits(state, dst, length, more);
    return zebStatusOk;
}

ZebStatus zebimpl::zebiEncodeGetRate_JPEG2K(const ZebJ2kEncodeState* state, int pass, int* rate) {
    if (!state) return zebStatusNullPointer;
    if (state->mark != kEncodeMark) return zebStatusBadContext;
    if (!rate) return zebStatusNullPointer;
    if (pass < 0 || pass >= state->coder->passCount) return zebStatusJ2kBadPass;
    *rate = state->coder->passRate[pass];
    return zebStatusOk;
}

ZebStatus zebimpl::zebiEncodeGetDist_JPEG2K(const ZebJ2kEncodeState* state, int pass, double* distortion) {
    if (!state) return zebStatusNullPointer;
    if (state->mark != kEncodeMark) return zebStatusBadContext;
    if (!distortion) return zebStatusNullPointer;
    if (pass < 0 || pass >= state->coder->passCount) return zebStatusJ2kBadPass;
    double sum = 0.0;
    for (int i = 0; i <= pass; ++i) sum += std::ldexp(static_cast<double>(state->passDistortion[i]), state->passShift[i]);
    *distortion = sum;
    return zebStatusOk;
}

ZebStatus zebimpl::zebiEncodeGetTermPassLen_JPEG2K(const ZebJ2kEncodeState* state, int segment, int* length) {
    if (!state) return zebStatusNullPointer;
    if (state->mark != kEncodeMark) return zebStatusBadContext;
    if (!length) return zebStatusNullPointer;
    const ZebJ2kCoderState* c = state->coder;
    const int segments = blockLoaded(state) ? segmentCountOf(c) : 0;
    if (segment < 0 || segment >= segments) return zebStatusJ2kBadPass;
    if (c->termAll) {
        *length = c->passBytes[segment];
        return zebStatusOk;
    }
    int seg = 0, sum = 0;
    for (int i = 0; i < c->passCount; ++i) {
        if (seg == segment) sum += c->passBytes[i];
        if (i + 1 < c->passCount && c->passRaw[i] != c->passRaw[i + 1]) ++seg;
    }
    *length = sum;
    return zebStatusOk;
}
