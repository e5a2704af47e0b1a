// SPDX-License-Identifier: MIT
#include "previewfixture.h"

#include "imageresizer.h"
#include "photofiles.h"
#include "photogenerator.h"

#include <QTest>
#include <QUrl>

QImage PreviewFixture::previewOf(const QString &path)
{
    const std::optional<QByteArray> preview = ImageResizer::createPreview(QUrl::fromLocalFile(path));
    return preview ? PhotoFiles::decodeJpeg(*preview) : QImage();
}

const QImage &PreviewFixture::scene(QSize size, std::uint32_t seed)
{
    const QString key = QStringLiteral("%1x%2/%3").arg(size.width()).arg(size.height()).arg(seed);
    auto found = m_scenes.find(key);
    if (found == m_scenes.end())
        found = m_scenes.insert(key, PhotoGenerator(size, seed).image8());
    return *found;
}

QString PreviewFixture::write(const QString &name, const QByteArray &bytes) const
{
    const QString file = path(name);
    return PhotoFiles::writeFile(file, bytes) ? file : QString();
}

void PreviewFixture::initTestCase()
{
    QVERIFY(m_dir.isValid());
}
