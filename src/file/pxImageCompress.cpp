// The lossy run-length compressor of 16-bit images (CSHORT data). Dark background is merged into runs with a
// wide tolerance, bright content with a narrow one; protected pixels (steep edges and bright spots) are never
// merged. The settings come from the environment's named parameters, once per process. The stages run on the
// fast kernels of the best instruction level this processor has (pxImageCompressLanes.h).
#include "pxImageCompressInternal.h"
#include "pxImageFileInternal.h"

using pxcompress::Settings;

namespace {

const char *const MODULE = "pxImageCompress";

bool settingsRead = false;
Settings settings;

// Reads the nine settings on the first call and keeps them; absent keys take their defaults. A key that is
// present but does not parse fails the read (and the call that needed it); it is read again next time.
const Settings *currentSettings() {
    if (settingsRead)
        return &settings;
    Settings s;
    const bool ok = pxEnvGetParam2int("pxImageCFLSDiffLow", 128, &s.diffLow) &&
                    pxEnvGetParam2int("pxImageCFLSDiffHigh", 4, &s.diffHigh) &&
                    pxEnvGetParam2int("pxImageCFLSBLAddOn", 800, &s.blAddOn) &&
                    pxEnvGetParam2float("pxImageCFLSBLfactor", 1.05f, &s.blFactor) &&
                    pxEnvGetParam2float("pxImageCFLSprotectWidth", 4.0f, &s.protectWidth) &&
                    pxEnvGetParam2float("pxImageCFLSratioTh", 2.0f, &s.ratioTh) &&
                    pxEnvGetParam2int("pxImageCFLSratioWidth", 1, &s.ratioWidth) &&
                    pxEnvGetParam2int("pxImageCFLSmaxProtectWidth", 80, &s.maxProtectWidth) &&
                    pxEnvGetParam2int("pxImageCFLSprotectionMethod", 3, &s.protectionMethod);
    if (!ok)
        return nullptr;
    settings = s;
    settingsRead = true;
    return &settings;
}

} // namespace

void pxImageCompressResetSettings() {
    settingsRead = false;
}

uint32_t pxImageCompressShort(uint16_t *pixels, int32_t width, int32_t height, uint16_t **words,
                              uint32_t *count) {
    return pxcompress::compressWith(pxcompress::kernelsBest(), pixels, width, height, words, count);
}

uint32_t pxcompress::compressWith(const Kernels &kernels, uint16_t *pixels, int32_t width, int32_t height,
                                  uint16_t **words, uint32_t *count) {
    const Settings *settingsInUse = currentSettings();
    if (!settingsInUse) {
        PX_TRACE(MODULE);
        return 0;
    }
    const Settings &s = *settingsInUse;
    const uint64_t n = (uint64_t)width * (uint64_t)height;
    const uint64_t limit = (3 * n) / 4;
    if (!pxMallocNoInit(reinterpret_cast<void **>(words), (limit + 2) * sizeof(uint16_t))) {
        PX_TRACE(MODULE);
        return 0;
    }
    int64_t q;
    if (!kernels.onePercentLevel(pixels, n, &q)) {
        pxMallocFree(reinterpret_cast<void **>(words));
        return 0;
    }
    const int64_t baseline = pxcompress::truncateSaturated((float)q * s.blFactor) + s.blAddOn;
    // The output words are not written before the runs are formed; until then their first rows' worth is
    // the protection's scratch (protection examines no row of an image under 11 rows, and from 11 rows on
    // there are more than 8 x width words).
    const uint64_t scratch = (uint64_t)pxcompress::kProtectScratchRows * (uint64_t)width;
    std::memset(*words, 0, (limit + 2 < scratch ? limit + 2 : scratch) * sizeof(uint16_t));
    kernels.protect(pixels, width, height, s, baseline + 4500, *words);
    pxcompress::RunWriter out{*words, limit, 0};
    kernels.formRuns(pixels, n, baseline, s, out);
    if (out.used > limit) {
        PX_WARN(3, MODULE, "Images size is too large %d", (int)(out.used * 2));
        pxMallocFree(reinterpret_cast<void **>(words));
        return 0;
    }
    *count = (uint32_t)out.used;
    return 1;
}
