// Placeholder: replaced by the full reverse-division family.
// Plain scalar reverse division: value / src[i] in single precision, rounded
// to nearest with ties to even; a zero divisor stores 65535 and is reported.
#include <cmath>

#include "frame/memory.h"

int ownsDivCRevBlock_16u(const Zeb16u* src, Zeb16u value, Zeb16u* dst, int len) {
    int zero = 0;
    for (int i = 0; i < len; ++i) {
        if (src[i] == 0) {
            dst[i] = 65535;
            zero = 1;
            continue;
        }
        float q = static_cast<float>(value) / static_cast<float>(src[i]);
        dst[i] = static_cast<Zeb16u>(std::lrintf(q));
    }
    return zero;
}

int ownzebsDivCRev_16u_omp(const Zeb16u* src, Zeb16u value, Zeb16u* dst, int len) {
    return ownsDivCRevBlock_16u(src, value, dst, len);
}

ZebStatus ownzebsDivCRev_16u(const Zeb16u* src, Zeb16u value, Zeb16u* dst, int len) {
    if (!src || !dst) return zebStatusNullPointer;
    if (len < 1) return zebStatusBadSize;
    if (value == 0) {
        bool zero = false;
        for (int i = 0; i < len; ++i) zero |= src[i] == 0;
        for (int i = 0; i < len; ++i) dst[i] = 0;
        return zero ? zebStatusDivideByZero : zebStatusOk;
    }
    int r = len >= 2048 ? ownzebsDivCRev_16u_omp(src, value, dst, len) : ownsDivCRevBlock_16u(src, value, dst, len);
    return r ? zebStatusDivideByZero : zebStatusOk;
}

ZebStatus ownzebsDivCRev_16u_I(Zeb16u value, Zeb16u* srcDst, int len) {
    return ownzebsDivCRev_16u(srcDst, value, srcDst, len);
}
