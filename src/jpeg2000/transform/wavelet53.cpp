// Reversible 5/3 wavelet building blocks: forward and inverse rows, columns
// and single lifting steps, 16-bit and 32-bit. None of them extends a signal;
// the caller supplies the samples beyond the region.
#include "frame/impl.h"
#include "frame/simd.h"
#include "jpeg2000/transform/wavelet.h"

namespace zeb::j2k {

namespace {

// ------------------------------------------------------------ rows
// Each pass over a row does both lifting steps: the high-pass value just
// computed stays in a register for the next low-pass value. S is the scalar
// number form, Sv the scalar statement of the vector lanes' form (used for
// the single neighbour values that a vector block takes from outside).

// Scalar forward row from output i on (phase 0).
template <class S>
inline void fwdRowTail0(const typename S::T* x, typename S::T* lo, typename S::T* hi, int32_t i, int32_t w) {
    using T = typename S::T;
    T hp = S::fp(x[2 * i - 1], x[2 * i - 2], x[2 * i]);
    for (; i < w; ++i) {
        const T h = S::fp(x[2 * i + 1], x[2 * i], x[2 * i + 2]);
        hi[i] = h;
        lo[i] = S::fu(x[2 * i], hp, h);
        hp = h;
    }
}

// Scalar forward row from output i on (other phase).
template <class S>
inline void fwdRowTail1(const typename S::T* x, typename S::T* lo, typename S::T* hi, int32_t i, int32_t w) {
    using T = typename S::T;
    T h = S::fp(x[2 * i], x[2 * i - 1], x[2 * i + 1]);
    for (; i < w; ++i) {
        const T hn = S::fp(x[2 * i + 2], x[2 * i + 1], x[2 * i + 3]);
        hi[i] = h;
        lo[i] = S::fu(x[2 * i + 1], h, hn);
        h = hn;
    }
}

template <class S>
inline void invRowTail0(const typename S::T* lo, const typename S::T* hi, typename S::T* x, int32_t i, int32_t w) {
    using T = typename S::T;
    T e = S::iu(lo[i], hi[i - 1], hi[i]);
    for (; i < w; ++i) {
        const T en = S::iu(lo[i + 1], hi[i], hi[i + 1]);
        x[2 * i] = e;
        x[2 * i + 1] = S::ip(hi[i], e, en);
        e = en;
    }
}

template <class S>
inline void invRowTail1(const typename S::T* lo, const typename S::T* hi, typename S::T* x, int32_t i, int32_t w) {
    using T = typename S::T;
    T op = S::iu(lo[i - 1], hi[i - 1], hi[i]);
    for (; i < w; ++i) {
        const T o = S::iu(lo[i], hi[i], hi[i + 1]);
        x[2 * i] = S::ip(hi[i], op, o);
        x[2 * i + 1] = o;
        op = o;
    }
}

template <class Ln, class S, class Sv>
void fwdRowVec(const typename Ln::T* x, typename Ln::T* lo, typename Ln::T* hi, int32_t w, int32_t phase) {
    constexpr int N = Ln::N;
    const __m128i two = Ln::set1(2);
    int32_t i = 0;
    if (phase == 0) {
        if (w >= N) {
            // Lane N-1 carries H[i-1] into the next block.
            __m128i hprev = Ln::set1(Sv::fp(x[-1], x[-2], x[0]));
            for (; i + N <= w; i += N) {
                __m128i e, o;
                Ln::split(x + 2 * i, e, o);
                const __m128i en = Ln::shiftInLast(e, x[2 * i + 2 * N]);
                const __m128i h = Ln::sub(o, Ln::sra1(Ln::add(e, en)));
                const __m128i hl = Ln::withPrevLast(h, hprev);
                const __m128i l = Ln::add(e, Ln::sra2(Ln::add(Ln::add(hl, h), two)));
                Ln::store(hi + i, h);
                Ln::store(lo + i, l);
                hprev = h;
            }
        }
        fwdRowTail0<S>(x, lo, hi, i, w);
    } else {
        if (w >= N) {
            // Lane N-1 carries x[2i-1], the left neighbour of the first high-pass sample.
            __m128i oprev = Ln::set1(x[-1]);
            for (; i + N <= w; i += N) {
                __m128i e, o;
                Ln::split(x + 2 * i, e, o);
                const __m128i op = Ln::withPrevLast(o, oprev);
                const __m128i h = Ln::sub(e, Ln::sra1(Ln::add(op, o)));
                const int32_t k = 2 * (i + N);
                const __m128i hn = Ln::shiftInLast(h, Sv::fp(x[k], x[k - 1], x[k + 1]));
                const __m128i l = Ln::add(o, Ln::sra2(Ln::add(Ln::add(h, hn), two)));
                Ln::store(hi + i, h);
                Ln::store(lo + i, l);
                oprev = o;
            }
        }
        fwdRowTail1<S>(x, lo, hi, i, w);
    }
}

template <class Ln, class S, class Sv>
void invRowVec(const typename Ln::T* lo, const typename Ln::T* hi, typename Ln::T* x, int32_t w, int32_t phase) {
    constexpr int N = Ln::N;
    const __m128i two = Ln::set1(2);
    int32_t i = 0;
    if (phase == 0) {
        for (; i + N <= w; i += N) {
            const __m128i l = Ln::load(lo + i), h = Ln::load(hi + i), hl = Ln::load(hi + i - 1);
            const __m128i e = Ln::sub(l, Ln::sra2(Ln::add(Ln::add(hl, h), two)));
            const __m128i en = Ln::shiftInLast(e, Sv::iu(lo[i + N], hi[i + N - 1], hi[i + N]));
            const __m128i o = Ln::add(h, Ln::sra1(Ln::add(e, en)));
            Ln::merge(x + 2 * i, e, o);
        }
        invRowTail0<S>(lo, hi, x, i, w);
    } else {
        if (w >= N) {
            // Lane N-1 carries x[2i-1], the left neighbour of the first even output.
            __m128i oprev = Ln::set1(Sv::iu(lo[-1], hi[-1], hi[0]));
            for (; i + N <= w; i += N) {
                const __m128i l = Ln::load(lo + i), h = Ln::load(hi + i), hn = Ln::load(hi + i + 1);
                const __m128i o = Ln::sub(l, Ln::sra2(Ln::add(Ln::add(h, hn), two)));
                const __m128i op = Ln::withPrevLast(o, oprev);
                const __m128i e = Ln::add(h, Ln::sra1(Ln::add(op, o)));
                Ln::merge(x + 2 * i, e, o);
                oprev = o;
            }
        }
        invRowTail1<S>(lo, hi, x, i, w);
    }
}

// ------------------------------------------------------------ columns
// Row by row: high-pass row i is written before low-pass row i needs it, and
// the preceding high-pass row is read back from the destination. Within a
// row, each sample reads its inputs, then writes. `vec` selects vector chunks
// (with an alignment prologue on the first output row) for a row's bulk.

template <class W, class S>
void fwdColT(const typename W::T* x, int32_t xs, typename W::T* lo, int32_t ls, typename W::T* hi, int32_t hs,
             int32_t w, int32_t h, int32_t phase, bool vec) {
    using T = typename W::T;
    using L = Lift53<W>;
    using V = typename W::V;
    const RowWalk<W::N, T> walk{vec, w};
    if (phase == 0) {
        for (int32_t i = 0; i < h; ++i) {
            const T* xe = atRow(x, xs, 2 * i);
            const T* xo = atRow(x, xs, 2 * i + 1);
            const T* xn = atRow(x, xs, 2 * i + 2);
            T* hr = atRow(hi, hs, i);
            T* lr = atRow(lo, ls, i);
            if (i == 0) {
                // H[-1] is formed on the fly from rows -2, -1 and 0.
                const T* xm2 = atRow(x, xs, -2);
                const T* xm1 = atRow(x, xs, -1);
                walk.run(
                    hr,
                    [&](int32_t j) {
                        const V e = W::load(xe + j);
                        const V hh = L::fp(W::load(xo + j), e, W::load(xn + j));
                        const V hp = L::fp(W::load(xm1 + j), W::load(xm2 + j), e);
                        W::store(hr + j, hh);
                        W::store(lr + j, L::fu(e, hp, hh));
                    },
                    [&](int32_t j) {
                        const T e = xe[j], o = xo[j], n = xn[j], m1 = xm1[j], m2 = xm2[j];
                        const T hh = S::fp(o, e, n);
                        hr[j] = hh;
                        lr[j] = S::fu(e, S::fp(m1, m2, e), hh);
                    });
            } else {
                const T* hp = atRow(hi, hs, i - 1);
                walk.run(
                    hr,
                    [&](int32_t j) {
                        const V e = W::load(xe + j);
                        const V hh = L::fp(W::load(xo + j), e, W::load(xn + j));
                        W::store(hr + j, hh);
                        W::store(lr + j, L::fu(e, W::load(hp + j), hh));
                    },
                    [&](int32_t j) {
                        const T e = xe[j], o = xo[j], n = xn[j];
                        const T hh = S::fp(o, e, n);
                        hr[j] = hh;
                        const T p = hp[j];
                        lr[j] = S::fu(e, p, hh);
                    });
            }
        }
    } else {
        // High-pass row 0 first; then each step writes high-pass row i+1 and
        // low-pass row i. H[h] is formed on the fly and not stored.
        {
            const T* xm1 = atRow(x, xs, -1);
            const T* x0 = x;
            const T* x1 = atRow(x, xs, 1);
            T* hr = hi;
            walk.run(
                hr, [&](int32_t j) { W::store(hr + j, L::fp(W::load(x0 + j), W::load(xm1 + j), W::load(x1 + j))); },
                [&](int32_t j) {
                    const T c = x0[j], a = xm1[j], b = x1[j];
                    hr[j] = S::fp(c, a, b);
                });
        }
        for (int32_t i = 0; i < h; ++i) {
            const T* xo = atRow(x, xs, 2 * i + 1);
            const T* xe = atRow(x, xs, 2 * i + 2);
            const T* xn = atRow(x, xs, 2 * i + 3);
            const T* hc = atRow(hi, hs, i);
            T* lr = atRow(lo, ls, i);
            if (i + 1 < h) {
                T* hr = atRow(hi, hs, i + 1);
                walk.run(
                    hr,
                    [&](int32_t j) {
                        const V o = W::load(xo + j);
                        const V hn = L::fp(W::load(xe + j), o, W::load(xn + j));
                        W::store(hr + j, hn);
                        W::store(lr + j, L::fu(o, W::load(hc + j), hn));
                    },
                    [&](int32_t j) {
                        const T o = xo[j], e = xe[j], n = xn[j];
                        const T hn = S::fp(e, o, n);
                        hr[j] = hn;
                        const T c = hc[j];
                        lr[j] = S::fu(o, c, hn);
                    });
            } else {
                walk.run(
                    lr,
                    [&](int32_t j) {
                        const V o = W::load(xo + j);
                        const V hn = L::fp(W::load(xe + j), o, W::load(xn + j));
                        W::store(lr + j, L::fu(o, W::load(hc + j), hn));
                    },
                    [&](int32_t j) {
                        const T o = xo[j], e = xe[j], n = xn[j];
                        const T c = hc[j];
                        lr[j] = S::fu(o, c, S::fp(e, o, n));
                    });
            }
        }
    }
}

template <class W, class S>
void invColT(const typename W::T* lo, int32_t ls, const typename W::T* hi, int32_t hs, typename W::T* x, int32_t xs,
             int32_t w, int32_t h, int32_t phase, bool vec) {
    using T = typename W::T;
    using L = Lift53<W>;
    using V = typename W::V;
    const RowWalk<W::N, T> walk{vec, w};
    if (phase == 0) {
        // Even row 0 first; then each step writes even row 2i+2 (not stored
        // for the last step) and odd row 2i+1, reading even row 2i back.
        {
            const T* l0 = lo;
            const T* hm = atRow(hi, hs, -1);
            const T* h0 = hi;
            walk.run(
                x, [&](int32_t j) { W::store(x + j, L::iu(W::load(l0 + j), W::load(hm + j), W::load(h0 + j))); },
                [&](int32_t j) {
                    const T c = l0[j], a = hm[j], b = h0[j];
                    x[j] = S::iu(c, a, b);
                });
        }
        for (int32_t i = 0; i < h; ++i) {
            const T* ln = atRow(lo, ls, i + 1);
            const T* hc = atRow(hi, hs, i);
            const T* hn = atRow(hi, hs, i + 1);
            const T* xe = atRow(static_cast<const T*>(x), xs, 2 * i);
            T* xo = atRow(x, xs, 2 * i + 1);
            if (i + 1 < h) {
                T* xn = atRow(x, xs, 2 * i + 2);
                walk.run(
                    xo,
                    [&](int32_t j) {
                        const V c = W::load(hc + j);
                        const V en = L::iu(W::load(ln + j), c, W::load(hn + j));
                        W::store(xn + j, en);
                        W::store(xo + j, L::ip(c, W::load(xe + j), en));
                    },
                    [&](int32_t j) {
                        const T l = ln[j], c = hc[j], n = hn[j];
                        const T en = S::iu(l, c, n);
                        xn[j] = en;
                        const T e = xe[j];
                        xo[j] = S::ip(c, e, en);
                    });
            } else {
                walk.run(
                    xo,
                    [&](int32_t j) {
                        const V c = W::load(hc + j);
                        const V en = L::iu(W::load(ln + j), c, W::load(hn + j));
                        W::store(xo + j, L::ip(c, W::load(xe + j), en));
                    },
                    [&](int32_t j) {
                        const T l = ln[j], c = hc[j], n = hn[j];
                        const T en = S::iu(l, c, n);
                        const T e = xe[j];
                        xo[j] = S::ip(c, e, en);
                    });
            }
        }
    } else {
        // Each step writes odd row 2i+1, then even row 2i from it and from odd
        // row 2i-1 (read back; formed on the fly for the first step).
        for (int32_t i = 0; i < h; ++i) {
            const T* lc = atRow(lo, ls, i);
            const T* hc = atRow(hi, hs, i);
            const T* hn = atRow(hi, hs, i + 1);
            T* xo = atRow(x, xs, 2 * i + 1);
            T* xe = atRow(x, xs, 2 * i);
            if (i == 0) {
                const T* lm = atRow(lo, ls, -1);
                const T* hm = atRow(hi, hs, -1);
                walk.run(
                    xe,
                    [&](int32_t j) {
                        const V c = W::load(hc + j);
                        const V o = L::iu(W::load(lc + j), c, W::load(hn + j));
                        const V op = L::iu(W::load(lm + j), W::load(hm + j), c);
                        W::store(xo + j, o);
                        W::store(xe + j, L::ip(c, op, o));
                    },
                    [&](int32_t j) {
                        const T l = lc[j], c = hc[j], n = hn[j], l1 = lm[j], m = hm[j];
                        const T o = S::iu(l, c, n);
                        xo[j] = o;
                        xe[j] = S::ip(c, S::iu(l1, m, c), o);
                    });
            } else {
                const T* xp = atRow(static_cast<const T*>(x), xs, 2 * i - 1);
                walk.run(
                    xe,
                    [&](int32_t j) {
                        const V c = W::load(hc + j);
                        const V o = L::iu(W::load(lc + j), c, W::load(hn + j));
                        W::store(xo + j, o);
                        W::store(xe + j, L::ip(c, W::load(xp + j), o));
                    },
                    [&](int32_t j) {
                        const T l = lc[j], c = hc[j], n = hn[j];
                        const T o = S::iu(l, c, n);
                        xo[j] = o;
                        const T p = xp[j];
                        xe[j] = S::ip(c, p, o);
                    });
            }
        }
    }
}

// ------------------------------------------------------------ lifting steps
// All inputs of a sample are read before its outputs are written, on every
// path, so that an output row may share memory with an input row of the
// same sample position.

template <class W, class S>
void fwdLiftT(const typename W::T* s0, const typename W::T* s1, const typename W::T* s2, typename W::T* lo,
              const typename W::T* hp, typename W::T* hi, int32_t w, bool vec) {
    using T = typename W::T;
    using L = Lift53<W>;
    using V = typename W::V;
    auto one = [&](int32_t j) {
        const T a = s0[j], b = s1[j], c = s2[j], p = hp[j];
        const T hh = S::fp(b, a, c);
        hi[j] = hh;
        lo[j] = S::fu(a, p, hh);
    };
    if (!vec) {
        for (int32_t j = 0; j < w; ++j) one(j);
        return;
    }
    walkRow<W::N>(
        w, 0,
        [&](int32_t j) {
            const V a = W::load(s0 + j), b = W::load(s1 + j), c = W::load(s2 + j), p = W::load(hp + j);
            const V hh = L::fp(b, a, c);
            W::store(hi + j, hh);
            W::store(lo + j, L::fu(a, p, hh));
        },
        one);
}

template <class W, class S>
void invLiftT(const typename W::T* lo, const typename W::T* h0, const typename W::T* h1,
              const typename W::T* evenPrev, typename W::T* odd, typename W::T* even, int32_t w, bool vec) {
    using T = typename W::T;
    using L = Lift53<W>;
    using V = typename W::V;
    auto one = [&](int32_t j) {
        const T l = lo[j], a = h0[j], b = h1[j], p = evenPrev[j];
        const T e = S::iu(l, a, b);
        even[j] = e;
        odd[j] = S::ip(a, e, p);
    };
    if (!vec) {
        for (int32_t j = 0; j < w; ++j) one(j);
        return;
    }
    walkRow<W::N>(
        w, 0,
        [&](int32_t j) {
            const V l = W::load(lo + j), a = W::load(h0 + j), b = W::load(h1 + j), p = W::load(evenPrev + j);
            const V e = L::iu(l, a, b);
            W::store(even + j, e);
            W::store(odd + j, L::ip(a, e, p));
        },
        one);
}

}  // namespace

// ------------------------------------------------------------ kernels

void fwdRow53_16s(const int16_t* x, int16_t* lo, int16_t* hi, int32_t w, int32_t phase) {
    fwdRowVec<Lanes16, Sum32of16, Sum16>(x, lo, hi, w, phase);
}
void fwdRow53_16s_c(const int16_t* x, int16_t* lo, int16_t* hi, int32_t w, int32_t phase) {
    if (phase == 0) fwdRowTail0<Sum32of16>(x, lo, hi, 0, w);
    else fwdRowTail1<Sum32of16>(x, lo, hi, 0, w);
}
void fwdRow53_32s(const int32_t* x, int32_t* lo, int32_t* hi, int32_t w, int32_t phase) {
    fwdRowVec<Lanes32, Sum32, Sum32>(x, lo, hi, w, phase);
}
void fwdRow53_32s_c(const int32_t* x, int32_t* lo, int32_t* hi, int32_t w, int32_t phase) {
    if (phase == 0) fwdRowTail0<Sum32>(x, lo, hi, 0, w);
    else fwdRowTail1<Sum32>(x, lo, hi, 0, w);
}
void invRow53_16s(const int16_t* lo, const int16_t* hi, int16_t* x, int32_t w, int32_t phase) {
    invRowVec<Lanes16, Sum32of16, Sum16>(lo, hi, x, w, phase);
}
void invRow53_16s_c(const int16_t* lo, const int16_t* hi, int16_t* x, int32_t w, int32_t phase) {
    if (phase == 0) invRowTail0<Sum32of16>(lo, hi, x, 0, w);
    else invRowTail1<Sum32of16>(lo, hi, x, 0, w);
}
void invRow53_32s(const int32_t* lo, const int32_t* hi, int32_t* x, int32_t w, int32_t phase) {
    invRowVec<Lanes32, Sum32, Sum32>(lo, hi, x, w, phase);
}
void invRow53_32s_c(const int32_t* lo, const int32_t* hi, int32_t* x, int32_t w, int32_t phase) {
    if (phase == 0) invRowTail0<Sum32>(lo, hi, x, 0, w);
    else invRowTail1<Sum32>(lo, hi, x, 0, w);
}

void fwdCol53_16s(const int16_t* x, int32_t xs, int16_t* lo, int32_t ls, int16_t* hi, int32_t hs, int32_t w,
                  int32_t h, int32_t phase) {
    fwdColT<Wide16, Sum32of16>(x, xs, lo, ls, hi, hs, w, h, phase, true);
}
void fwdCol53_16s_c(const int16_t* x, int32_t xs, int16_t* lo, int32_t ls, int16_t* hi, int32_t hs, int32_t w,
                    int32_t h, int32_t phase) {
    fwdColT<Wide16, Sum32of16>(x, xs, lo, ls, hi, hs, w, h, phase, false);
}
void fwdCol53_32s(const int32_t* x, int32_t xs, int32_t* lo, int32_t ls, int32_t* hi, int32_t hs, int32_t w,
                  int32_t h, int32_t phase) {
    fwdColT<Wide32, Sum32>(x, xs, lo, ls, hi, hs, w, h, phase, true);
}
void fwdCol53_32s_c(const int32_t* x, int32_t xs, int32_t* lo, int32_t ls, int32_t* hi, int32_t hs, int32_t w,
                    int32_t h, int32_t phase) {
    fwdColT<Wide32, Sum32>(x, xs, lo, ls, hi, hs, w, h, phase, false);
}
void invCol53_16s(const int16_t* lo, int32_t ls, const int16_t* hi, int32_t hs, int16_t* x, int32_t xs, int32_t w,
                  int32_t h, int32_t phase) {
    invColT<Wide16, Sum32of16>(lo, ls, hi, hs, x, xs, w, h, phase, true);
}
void invCol53_16s_c(const int16_t* lo, int32_t ls, const int16_t* hi, int32_t hs, int16_t* x, int32_t xs,
                    int32_t w, int32_t h, int32_t phase) {
    invColT<Wide16, Sum32of16>(lo, ls, hi, hs, x, xs, w, h, phase, false);
}
void invCol53_32s(const int32_t* lo, int32_t ls, const int32_t* hi, int32_t hs, int32_t* x, int32_t xs, int32_t w,
                  int32_t h, int32_t phase) {
    invColT<Wide32, Sum32>(lo, ls, hi, hs, x, xs, w, h, phase, true);
}
void invCol53_32s_c(const int32_t* lo, int32_t ls, const int32_t* hi, int32_t hs, int32_t* x, int32_t xs,
                    int32_t w, int32_t h, int32_t phase) {
    invColT<Wide32, Sum32>(lo, ls, hi, hs, x, xs, w, h, phase, false);
}

void fwdLift53_16s(const int16_t* s0, const int16_t* s1, const int16_t* s2, int16_t* lo, const int16_t* hp,
                   int16_t* hi, int32_t w) {
    fwdLiftT<Wide16, Sum16>(s0, s1, s2, lo, hp, hi, w, true);
}
void fwdLift53_16s_c(const int16_t* s0, const int16_t* s1, const int16_t* s2, int16_t* lo, const int16_t* hp,
                     int16_t* hi, int32_t w) {
    fwdLiftT<Wide16, Sum16>(s0, s1, s2, lo, hp, hi, w, false);
}
void fwdLift53_32s(const int32_t* s0, const int32_t* s1, const int32_t* s2, int32_t* lo, const int32_t* hp,
                   int32_t* hi, int32_t w) {
    fwdLiftT<Wide32, Sum32>(s0, s1, s2, lo, hp, hi, w, true);
}
void fwdLift53_32s_c(const int32_t* s0, const int32_t* s1, const int32_t* s2, int32_t* lo, const int32_t* hp,
                     int32_t* hi, int32_t w) {
    fwdLiftT<Wide32, Sum32>(s0, s1, s2, lo, hp, hi, w, false);
}
void invLift53_16s(const int16_t* lo, const int16_t* h0, const int16_t* h1, const int16_t* ep, int16_t* odd,
                   int16_t* even, int32_t w) {
    invLiftT<Wide16, Sum16>(lo, h0, h1, ep, odd, even, w, true);
}
void invLift53_16s_c(const int16_t* lo, const int16_t* h0, const int16_t* h1, const int16_t* ep, int16_t* odd,
                     int16_t* even, int32_t w) {
    invLiftT<Wide16, Sum16>(lo, h0, h1, ep, odd, even, w, false);
}
void invLift53_32s(const int32_t* lo, const int32_t* h0, const int32_t* h1, const int32_t* ep, int32_t* odd,
                   int32_t* even, int32_t w) {
    invLiftT<Wide32, Sum32>(lo, h0, h1, ep, odd, even, w, true);
}
void invLift53_32s_c(const int32_t* lo, const int32_t* h0, const int32_t* h1, const int32_t* ep, int32_t* odd,
                     int32_t* even, int32_t w) {
    invLiftT<Wide32, Sum32>(lo, h0, h1, ep, odd, even, w, false);
}

// The column forms take the vector path from 16 samples of width on, for
// element-aligned rows whose outputs do not overlap the rows they read.
template <class T>
bool colVectorFwd(const T* x, int32_t xs, const T* lo, const T* hi, int32_t hs, int32_t w, int32_t h,
                  int32_t phase) {
    if (w < 16) return false;
    const uintptr_t mis = (reinterpret_cast<uintptr_t>(x) | reinterpret_cast<uintptr_t>(lo) |
                           reinterpret_cast<uintptr_t>(hi)) & (sizeof(T) - 1);
    if (mis) return false;
    const Span in = phase == 0 ? rowsSpan(x, xs, -2, 2 * h, w, sizeof(T)) : rowsSpan(x, xs, -1, 2 * h + 1, w, sizeof(T));
    return !rowsSpan(hi, hs, 0, h - 1, w, sizeof(T)).overlaps(in);
}

template <class T>
bool colVectorInv(const T* lo, int32_t ls, const T* hi, int32_t hs, const T* x, int32_t xs, int32_t w, int32_t h,
                  int32_t phase) {
    if (w < 16) return false;
    const uintptr_t mis = (reinterpret_cast<uintptr_t>(x) | reinterpret_cast<uintptr_t>(lo) |
                           reinterpret_cast<uintptr_t>(hi)) & (sizeof(T) - 1);
    if (mis) return false;
    const Span out = rowsSpan(x, xs, 0, 2 * h - 1, w, sizeof(T));
    const Span l = phase == 0 ? rowsSpan(lo, ls, 0, h, w, sizeof(T)) : rowsSpan(lo, ls, -1, h - 1, w, sizeof(T));
    return !out.overlaps(l) && !out.overlaps(rowsSpan(hi, hs, -1, h, w, sizeof(T)));
}

}  // namespace zeb::j2k

// ------------------------------------------------------------ exported operations

namespace {

template <class T>
ZebStatus checkRegion(const void* a, int32_t as, const void* b, int32_t bs, const void* c, int32_t cs, ZebSize roi) {
    if (!a || !b || !c) return zebStatusNullPointer;
    if (as < 1 || bs < 1 || cs < 1) return zebStatusBadStep;
    if (roi.width < 1 || roi.height < 1) return zebStatusBadSize;
    return zebStatusOk;
}

template <class T, class K>
ZebStatus fwdRows(const T* src, int srcStep, T* dstLow, int dstLowStep, T* dstHigh, int dstHighStep, ZebSize roi,
                  int phase, K kernel) {
    if (ZebStatus s = checkRegion<T>(src, srcStep, dstLow, dstLowStep, dstHigh, dstHighStep, roi)) return s;
    const int32_t p = phase != 0;
    for (int32_t y = 0; y < roi.height; ++y)
        kernel(zeb::j2k::atRow(src, srcStep, y), zeb::j2k::atRow(dstLow, dstLowStep, y),
               zeb::j2k::atRow(dstHigh, dstHighStep, y), roi.width, p);
    return zebStatusOk;
}

template <class T, class K>
ZebStatus invRows(const T* srcLow, int srcLowStep, const T* srcHigh, int srcHighStep, ZebSize roi, T* dst,
                  int dstStep, int phase, K kernel) {
    if (ZebStatus s = checkRegion<T>(srcLow, srcLowStep, srcHigh, srcHighStep, dst, dstStep, roi)) return s;
    const int32_t p = phase != 0;
    for (int32_t y = 0; y < roi.height; ++y)
        kernel(zeb::j2k::atRow(srcLow, srcLowStep, y), zeb::j2k::atRow(srcHigh, srcHighStep, y),
               zeb::j2k::atRow(dst, dstStep, y), roi.width, p);
    return zebStatusOk;
}

template <class T>
ZebStatus checkLift(const void* a, const void* b, const void* c, const void* d, const void* e, const void* f,
                    int width) {
    if (!a || !b || !c || !d || !e || !f) return zebStatusNullPointer;
    if (width < 1) return zebStatusBadSize;
    return zebStatusOk;
}

}  // namespace

ZebStatus zebimpl::zebiWTFwdRow_B53_JPEG2K_16s_C1R(const Zeb16s* src, int srcStep, Zeb16s* dstLow, int dstLowStep,
                                                   Zeb16s* dstHigh, int dstHighStep, ZebSize roiSize, int phase) {
    return fwdRows(src, srcStep, dstLow, dstLowStep, dstHigh, dstHighStep, roiSize, phase, zeb::j2k::fwdRow53_16s);
}

ZebStatus zebimpl::zebiWTFwdRow_B53_JPEG2K_32s_C1R(const Zeb32s* src, int srcStep, Zeb32s* dstLow, int dstLowStep,
                                                   Zeb32s* dstHigh, int dstHighStep, ZebSize roiSize, int phase) {
    return fwdRows(src, srcStep, dstLow, dstLowStep, dstHigh, dstHighStep, roiSize, phase, zeb::j2k::fwdRow53_32s);
}

ZebStatus zebimpl::zebiWTInvRow_B53_JPEG2K_16s_C1R(const Zeb16s* srcLow, int srcLowStep, const Zeb16s* srcHigh,
                                                   int srcHighStep, ZebSize roiSize, Zeb16s* dst, int dstStep,
                                                   int phase) {
    return invRows(srcLow, srcLowStep, srcHigh, srcHighStep, roiSize, dst, dstStep, phase, zeb::j2k::invRow53_16s);
}

ZebStatus zebimpl::zebiWTInvRow_B53_JPEG2K_32s_C1R(const Zeb32s* srcLow, int srcLowStep, const Zeb32s* srcHigh,
                                                   int srcHighStep, ZebSize roiSize, Zeb32s* dst, int dstStep,
                                                   int phase) {
    return invRows(srcLow, srcLowStep, srcHigh, srcHighStep, roiSize, dst, dstStep, phase, zeb::j2k::invRow53_32s);
}

ZebStatus zebimpl::zebiWTFwdCol_B53_JPEG2K_16s_C1R(const Zeb16s* src, int srcStep, Zeb16s* dstLow, int dstLowStep,
                                                   Zeb16s* dstHigh, int dstHighStep, ZebSize roiSize, int phase) {
    if (ZebStatus s = checkRegion<Zeb16s>(src, srcStep, dstLow, dstLowStep, dstHigh, dstHighStep, roiSize)) return s;
    const int32_t p = phase != 0;
    if (zeb::j2k::colVectorFwd(src, srcStep, dstLow, dstHigh, dstHighStep, roiSize.width, roiSize.height, p))
        zeb::j2k::fwdCol53_16s(src, srcStep, dstLow, dstLowStep, dstHigh, dstHighStep, roiSize.width, roiSize.height, p);
    else
        zeb::j2k::fwdCol53_16s_c(src, srcStep, dstLow, dstLowStep, dstHigh, dstHighStep, roiSize.width, roiSize.height,
                                 p);
    return zebStatusOk;
}

ZebStatus zebimpl::zebiWTFwdCol_B53_JPEG2K_32s_C1R(const Zeb32s* src, int srcStep, Zeb32s* dstLow, int dstLowStep,
                                                   Zeb32s* dstHigh, int dstHighStep, ZebSize roiSize, int phase) {
    if (ZebStatus s = checkRegion<Zeb32s>(src, srcStep, dstLow, dstLowStep, dstHigh, dstHighStep, roiSize)) return s;
    const int32_t p = phase != 0;
    if (zeb::j2k::colVectorFwd(src, srcStep, dstLow, dstHigh, dstHighStep, roiSize.width, roiSize.height, p))
        zeb::j2k::fwdCol53_32s(src, srcStep, dstLow, dstLowStep, dstHigh, dstHighStep, roiSize.width, roiSize.height, p);
    else
        zeb::j2k::fwdCol53_32s_c(src, srcStep, dstLow, dstLowStep, dstHigh, dstHighStep, roiSize.width, roiSize.height,
                                 p);
    return zebStatusOk;
}

ZebStatus zebimpl::zebiWTInvCol_B53_JPEG2K_16s_C1R(const Zeb16s* srcLow, int srcLowStep, const Zeb16s* srcHigh,
                                                   int srcHighStep, ZebSize roiSize, Zeb16s* dst, int dstStep,
                                                   int phase) {
    if (ZebStatus s = checkRegion<Zeb16s>(srcLow, srcLowStep, srcHigh, srcHighStep, dst, dstStep, roiSize)) return s;
    const int32_t p = phase != 0;
    if (zeb::j2k::colVectorInv(srcLow, srcLowStep, srcHigh, srcHighStep, dst, dstStep, roiSize.width, roiSize.height,
                               p))
        zeb::j2k::invCol53_16s(srcLow, srcLowStep, srcHigh, srcHighStep, dst, dstStep, roiSize.width, roiSize.height, p);
    else
        zeb::j2k::invCol53_16s_c(srcLow, srcLowStep, srcHigh, srcHighStep, dst, dstStep, roiSize.width, roiSize.height,
                                 p);
    return zebStatusOk;
}

ZebStatus zebimpl::zebiWTInvCol_B53_JPEG2K_32s_C1R(const Zeb32s* srcLow, int srcLowStep, const Zeb32s* srcHigh,
                                                   int srcHighStep, ZebSize roiSize, Zeb32s* dst, int dstStep,
                                                   int phase) {
    if (ZebStatus s = checkRegion<Zeb32s>(srcLow, srcLowStep, srcHigh, srcHighStep, dst, dstStep, roiSize)) return s;
    const int32_t p = phase != 0;
    if (zeb::j2k::colVectorInv(srcLow, srcLowStep, srcHigh, srcHighStep, dst, dstStep, roiSize.width, roiSize.height,
                               p))
        zeb::j2k::invCol53_32s(srcLow, srcLowStep, srcHigh, srcHighStep, dst, dstStep, roiSize.width, roiSize.height, p);
    else
        zeb::j2k::invCol53_32s_c(srcLow, srcLowStep, srcHigh, srcHighStep, dst, dstStep, roiSize.width, roiSize.height,
                                 p);
    return zebStatusOk;
}

ZebStatus zebimpl::zebiWTFwdColLift_B53_JPEG2K_16s_C1(const Zeb16s* src0, const Zeb16s* src1, const Zeb16s* src2,
                                                      Zeb16s* dstLow, const Zeb16s* srcHigh, Zeb16s* dstHigh,
                                                      int width) {
    if (ZebStatus s = checkLift<Zeb16s>(src0, src1, src2, dstLow, srcHigh, dstHigh, width)) return s;
    zeb::j2k::fwdLift53_16s(src0, src1, src2, dstLow, srcHigh, dstHigh, width);
    return zebStatusOk;
}

ZebStatus zebimpl::zebiWTFwdColLift_B53_JPEG2K_32s_C1(const Zeb32s* src0, const Zeb32s* src1, const Zeb32s* src2,
                                                      Zeb32s* dstLow, const Zeb32s* srcHigh, Zeb32s* dstHigh,
                                                      int width) {
    if (ZebStatus s = checkLift<Zeb32s>(src0, src1, src2, dstLow, srcHigh, dstHigh, width)) return s;
    zeb::j2k::fwdLift53_32s(src0, src1, src2, dstLow, srcHigh, dstHigh, width);
    return zebStatusOk;
}

ZebStatus zebimpl::zebiWTInvColLift_B53_JPEG2K_16s_C1(const Zeb16s* srcLow, const Zeb16s* srcHigh0,
                                                      const Zeb16s* srcHigh1, const Zeb16s* srcEven, Zeb16s* dstOdd,
                                                      Zeb16s* dstEven, int width) {
    if (ZebStatus s = checkLift<Zeb16s>(srcLow, srcHigh0, srcHigh1, srcEven, dstOdd, dstEven, width)) return s;
    zeb::j2k::invLift53_16s(srcLow, srcHigh0, srcHigh1, srcEven, dstOdd, dstEven, width);
    return zebStatusOk;
}

ZebStatus zebimpl::zebiWTInvColLift_B53_JPEG2K_32s_C1(const Zeb32s* srcLow, const Zeb32s* srcHigh0,
                                                      const Zeb32s* srcHigh1, const Zeb32s* srcEven, Zeb32s* dstOdd,
                                                      Zeb32s* dstEven, int width) {
    if (ZebStatus s = checkLift<Zeb32s>(srcLow, srcHigh0, srcHigh1, srcEven, dstOdd, dstEven, width)) return s;
    zeb::j2k::invLift53_32s(srcLow, srcHigh0, srcHigh1, srcEven, dstOdd, dstEven, width);
    return zebStatusOk;
}
