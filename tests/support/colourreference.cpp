// SPDX-License-Identifier: MIT
#include "colourreference.h"

#include <algorithm>
#include <cmath>
#include <lcms2.h>
#include <memory>
#include <vector>

namespace {

struct ProfileClose {
    void operator()(void *profile) const { cmsCloseProfile(profile); }
};
using Profile = std::unique_ptr<void, ProfileClose>;

QByteArray saved(const Profile &profile) {
    cmsUInt32Number size = 0;
    if (!profile || !cmsSaveProfileToMem(profile.get(), nullptr, &size))
        return {};
    QByteArray bytes(qsizetype(size), '\0');
    if (!cmsSaveProfileToMem(profile.get(), bytes.data(), &size))
        return {};
    return bytes;
}

Profile rgbProfile(const cmsCIExyY &white, const cmsCIExyYTRIPLE &primaries, cmsToneCurve *curve) {
    cmsToneCurve *curves[3] = {curve, curve, curve};
    Profile profile(cmsCreateRGBProfile(&white, &primaries, curves));
    cmsFreeToneCurve(curve);
    return profile;
}

Profile opened(const QByteArray &bytes) {
    return Profile(cmsOpenProfileFromMem(bytes.constData(), cmsUInt32Number(bytes.size())));
}

} // namespace

QByteArray ColourReference::srgbProfile() {
    return saved(Profile(cmsCreate_sRGBProfile()));
}

QByteArray ColourReference::adobeRgbProfile() {
    return saved(rgbProfile({0.3127, 0.3290, 1.0},
                            {{0.64, 0.33, 1.0}, {0.21, 0.71, 1.0}, {0.15, 0.06, 1.0}},
                            cmsBuildGamma(nullptr, 563.0 / 256.0)));
}

QByteArray ColourReference::displayP3Profile() {
    // The sRGB curve as ICC parametric type 4.
    const double srgbCurve[5] = {2.4, 1.0 / 1.055, 0.055 / 1.055, 1.0 / 12.92, 0.04045};
    return saved(rgbProfile({0.3127, 0.3290, 1.0},
                            {{0.680, 0.320, 1.0}, {0.265, 0.690, 1.0}, {0.150, 0.060, 1.0}},
                            cmsBuildParametricToneCurve(nullptr, 4, srgbCurve)));
}

QByteArray ColourReference::proPhotoProfile() {
    return saved(rgbProfile({0.3457, 0.3585, 1.0},
                            {{0.7347, 0.2653, 1.0}, {0.1596, 0.8404, 1.0}, {0.0366, 0.0001, 1.0}},
                            cmsBuildGamma(nullptr, 1.8)));
}

QByteArray ColourReference::adobeRgbLookupProfile() {
    const QByteArray adobe = adobeRgbProfile();
    const Profile source = opened(adobe);
    const Profile lab(cmsCreateLab4Profile(nullptr));
    cmsHTRANSFORM toLab = cmsCreateTransform(source.get(), TYPE_RGB_16, lab.get(), TYPE_Lab_16,
                                             INTENT_RELATIVE_COLORIMETRIC, cmsFLAGS_NOOPTIMIZE);
    if (toLab == nullptr)
        return {};
    constexpr cmsUInt32Number gridPoints = 33;
    cmsStage *table = cmsStageAllocCLut16bit(nullptr, gridPoints, 3, 3, nullptr);
    const auto sample = [](const cmsUInt16Number in[], cmsUInt16Number out[], void *cargo) {
        cmsDoTransform(static_cast<cmsHTRANSFORM>(cargo), in, out, 1);
        return int(TRUE);
    };
    cmsStageSampleCLut16bit(table, sample, toLab, 0);
    cmsDeleteTransform(toLab);
    // lutAtoBType wants curves on both sides of its table: identities here.
    cmsPipeline *pipeline = cmsPipelineAlloc(nullptr, 3, 3);
    cmsPipelineInsertStage(pipeline, cmsAT_END, cmsStageAllocToneCurves(nullptr, 3, nullptr));
    cmsPipelineInsertStage(pipeline, cmsAT_END, table);
    cmsPipelineInsertStage(pipeline, cmsAT_END, cmsStageAllocToneCurves(nullptr, 3, nullptr));
    Profile profile(cmsCreateProfilePlaceholder(nullptr));
    cmsSetProfileVersion(profile.get(), 4.3);
    cmsSetDeviceClass(profile.get(), cmsSigInputClass);
    cmsSetColorSpace(profile.get(), cmsSigRgbData);
    cmsSetPCS(profile.get(), cmsSigLabData);
    cmsWriteTag(profile.get(), cmsSigMediaWhitePointTag, cmsD50_XYZ());
    cmsWriteTag(profile.get(), cmsSigAToB0Tag, pipeline);
    cmsWriteTag(profile.get(), cmsSigAToB1Tag, pipeline);
    cmsPipelineFree(pipeline);
    return saved(profile);
}

QImage ColourReference::convert(const QImage &rgb, const QByteArray &from, const QByteArray &to) {
    const QImage source = rgb.convertToFormat(QImage::Format_RGB888);
    const Profile in = opened(from);
    const Profile out = opened(to);
    if (!in || !out)
        return {};
    // Little CMS's own transform, with its own optimisations: the preview's tables take no part.
    cmsHTRANSFORM transform = cmsCreateTransform(in.get(), TYPE_RGB_8, out.get(), TYPE_RGB_8,
                                                 INTENT_RELATIVE_COLORIMETRIC, cmsFLAGS_NOCACHE);
    if (transform == nullptr)
        return {};
    QImage result(source.size(), QImage::Format_RGB888);
    for (int y = 0; y < source.height(); ++y)
        cmsDoTransform(transform, source.constScanLine(y), result.scanLine(y),
                       cmsUInt32Number(source.width()));
    cmsDeleteTransform(transform);
    return result;
}

ColourReference::Difference ColourReference::deltaE76(const QImage &a, const QImage &b) {
    if (a.size() != b.size() || a.isNull())
        return {1e9, 1e9};
    const QImage first = a.convertToFormat(QImage::Format_RGB888);
    const QImage second = b.convertToFormat(QImage::Format_RGB888);
    const Profile srgb(cmsCreate_sRGBProfile());
    const Profile lab(cmsCreateLab4Profile(nullptr));
    cmsHTRANSFORM toLab = cmsCreateTransform(srgb.get(), TYPE_RGB_8, lab.get(), TYPE_Lab_DBL,
                                             INTENT_RELATIVE_COLORIMETRIC, cmsFLAGS_NOCACHE);
    const int width = first.width();
    const auto count = static_cast<std::size_t>(width);
    std::vector<cmsCIELab> labA(count);
    std::vector<cmsCIELab> labB(count);
    std::vector<double> differences;
    differences.reserve(std::size_t(width) * std::size_t(first.height()));
    for (int y = 0; y < first.height(); ++y) {
        cmsDoTransform(toLab, first.constScanLine(y), labA.data(), cmsUInt32Number(width));
        cmsDoTransform(toLab, second.constScanLine(y), labB.data(), cmsUInt32Number(width));
        for (std::size_t x = 0; x < labA.size(); ++x)
            differences.push_back(cmsDeltaE(&labA[x], &labB[x]));
    }
    cmsDeleteTransform(toLab);
    Difference result;
    double sum = 0;
    for (const double d : differences)
        sum += d;
    result.mean = sum / double(differences.size());
    const auto p99 = differences.begin() + std::ptrdiff_t(double(differences.size() - 1) * 0.99);
    std::nth_element(differences.begin(), p99, differences.end());
    result.p99 = *p99;
    return result;
}
