// SPDX-License-Identifier: MIT
#include "srgbconverter.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <lcms2.h>
#include <vector>

namespace {

struct ProfileClose {
    void operator()(void *profile) const { cmsCloseProfile(profile); }
};
using Profile = std::unique_ptr<void, ProfileClose>;

// Adobe RGB (1998) by its published definition: D65 white, these primaries, gamma 563/256.
Profile adobeRgb() {
    const cmsCIExyY white{0.3127, 0.3290, 1.0};
    const cmsCIExyYTRIPLE primaries{{0.64, 0.33, 1.0}, {0.21, 0.71, 1.0}, {0.15, 0.06, 1.0}};
    cmsToneCurve *gamma = cmsBuildGamma(nullptr, 563.0 / 256.0);
    if (gamma == nullptr)
        return {};
    cmsToneCurve *curves[3] = {gamma, gamma, gamma};
    Profile profile(cmsCreateRGBProfile(&white, &primaries, curves));
    cmsFreeToneCurve(gamma);
    return profile;
}

Profile sourceProfile(const PhotoMetadata &metadata) {
    if (!metadata.iccProfile.isEmpty()) {
        Profile profile(cmsOpenProfileFromMem(metadata.iccProfile.constData(),
                                              cmsUInt32Number(metadata.iccProfile.size())));
        // A profile that cannot turn RGB values into colours says nothing usable.
        if (profile && cmsGetColorSpace(profile.get()) == cmsSigRgbData &&
            cmsIsIntentSupported(profile.get(), INTENT_RELATIVE_COLORIMETRIC, LCMS_USED_AS_INPUT))
            return profile;
    }
    // An unusable profile is as good as none: the EXIF mark, if any, still says what it knows.
    return metadata.adobeRgb ? adobeRgb() : Profile();
}

// Many photos carry a profile that is sRGB under another name or version. Converting them would
// only cost time and round the values once more, so a transform that changes no sample of a
// coarse grid by more than one step is taken for what it is.
bool isIdentity(cmsHTRANSFORM transform) {
    constexpr int steps = 9;
    std::vector<std::uint8_t> grid;
    grid.reserve(steps * steps * steps * 3);
    for (int r = 0; r < steps; ++r)
        for (int g = 0; g < steps; ++g)
            for (int b = 0; b < steps; ++b)
                for (const int v : {r, g, b})
                    grid.push_back(std::uint8_t(std::min(255, v * 32)));
    std::vector<std::uint8_t> out(grid.size());
    cmsDoTransform(transform, grid.data(), out.data(), cmsUInt32Number(grid.size() / 3));
    for (std::size_t i = 0; i < grid.size(); ++i)
        if (std::abs(int(grid[i]) - int(out[i])) > 1)
            return false;
    return true;
}

} // namespace

struct SrgbConverter::Transform {
    explicit Transform(cmsHTRANSFORM t)
        : handle(t) {}
    ~Transform() { cmsDeleteTransform(handle); }
    Transform(const Transform &) = delete;
    Transform &operator=(const Transform &) = delete;
    cmsHTRANSFORM handle;
};

SrgbConverter::SrgbConverter(std::shared_ptr<Transform> transform)
    : m_transform(std::move(transform)) {}

SrgbConverter::SrgbConverter(MatrixShaperTables tables)
    : m_tables(std::move(tables)) {}

std::optional<SrgbConverter> SrgbConverter::forPhoto(const PhotoMetadata &metadata) {
    if (metadata.iccProfile.isEmpty() && !metadata.adobeRgb)
        return std::nullopt;
    const Profile source = sourceProfile(metadata);
    if (!source)
        return std::nullopt;
    if (std::optional<MatrixShaperTables> tables = MatrixShaperTables::of(source.get())) {
        if (tables->isIdentity())
            return std::nullopt;
        return SrgbConverter(std::move(*tables));
    }
    const Profile srgb(cmsCreate_sRGBProfile());
    if (!srgb)
        return std::nullopt;
    // Relative colorimetric, as browsers apply a profile: colours sRGB holds stay exactly what
    // they are, the rest are clipped to its gamut.
    cmsHTRANSFORM handle = cmsCreateTransform(source.get(), TYPE_RGB_8, srgb.get(), TYPE_RGB_8,
                                              INTENT_RELATIVE_COLORIMETRIC, 0);
    if (handle == nullptr)
        return std::nullopt;
    auto transform = std::make_shared<Transform>(handle);
    if (isIdentity(handle))
        return std::nullopt;
    return SrgbConverter(std::move(transform));
}

void SrgbConverter::convert(std::uint8_t *rgb, std::size_t pixels) const {
    if (m_tables) {
        m_tables->convert(rgb, pixels);
        return;
    }
    // Little CMS reads each pixel before it writes it, so the buffer may be both; its count
    // is 32 bits wide, so the work goes in bounded runs.
    constexpr std::size_t run = 1 << 20;
    for (std::size_t done = 0; done < pixels; done += run) {
        const std::size_t count = std::min(run, pixels - done);
        cmsDoTransform(m_transform->handle, rgb + done * 3, rgb + done * 3, cmsUInt32Number(count));
    }
}
