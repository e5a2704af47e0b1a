// SPDX-License-Identifier: MIT
#pragma once

#include <QColor>
#include <QObject>
#include <QtQml/qqml.h>

// The named colours and the measures the screens share. The colours follow the desktop's
// light or dark appearance unless one is forced (in a development build QUILLMERE_APPEARANCE=
// light|dark, for the tests that run the whole program; or the appearance property, which the
// screenshot program sets).
class Theme : public QObject {
    Q_OBJECT
    QML_ELEMENT
    QML_SINGLETON
    Q_PROPERTY(Appearance appearance READ appearance WRITE setAppearance NOTIFY appearanceChanged)
    Q_PROPERTY(bool dark READ dark NOTIFY colorsChanged)

    Q_PROPERTY(QColor primary READ primary NOTIFY colorsChanged)
    Q_PROPERTY(QColor secondary READ secondary NOTIFY colorsChanged)
    Q_PROPERTY(QColor tertiaryLabelColor READ tertiaryLabelColor NOTIFY colorsChanged)
    Q_PROPERTY(QColor red READ red NOTIFY colorsChanged)
    Q_PROPERTY(QColor orange READ orange NOTIFY colorsChanged)
    Q_PROPERTY(QColor green READ green NOTIFY colorsChanged)
    Q_PROPERTY(QColor blue READ blue NOTIFY colorsChanged)
    Q_PROPERTY(QColor windowBackgroundColor READ windowBackgroundColor NOTIFY colorsChanged)
    Q_PROPERTY(QColor controlBackgroundColor READ controlBackgroundColor NOTIFY colorsChanged)
    Q_PROPERTY(QColor separatorColor READ separatorColor NOTIFY colorsChanged)
    Q_PROPERTY(QColor accentColor READ accentColor NOTIFY colorsChanged)
    Q_PROPERTY(QColor progressTrackColor READ progressTrackColor NOTIFY colorsChanged)

    Q_PROPERTY(int panelWidth MEMBER panelWidth CONSTANT)
    Q_PROPERTY(int screenSpacing MEMBER screenSpacing CONSTANT)
    Q_PROPERTY(int screenPadding MEMBER screenPadding CONSTANT)
    Q_PROPERTY(int boxPadding MEMBER boxPadding CONSTANT)
    Q_PROPERTY(int fieldRadius MEMBER fieldRadius CONSTANT)
    Q_PROPERTY(int linkBoxRadius MEMBER linkBoxRadius CONSTANT)
    Q_PROPERTY(int roundControlSize MEMBER roundControlSize CONSTANT)
    Q_PROPERTY(int roundControlRadius MEMBER roundControlRadius CONSTANT)
    Q_PROPERTY(int pillRadius MEMBER pillRadius CONSTANT)

public:
    enum class Appearance { System, Light, Dark };
    Q_ENUM(Appearance)

    static constexpr int panelWidth = 340;
    static constexpr int screenSpacing = 20;
    static constexpr int screenPadding = 24;
    static constexpr int boxPadding = 16;
    static constexpr int fieldRadius = 12;
    static constexpr int linkBoxRadius = 14;
    static constexpr int roundControlSize = 72;
    static constexpr int roundControlRadius = 18;
    static constexpr int pillRadius = 20;

    explicit Theme(QObject *parent = nullptr);

    Appearance appearance() const { return m_appearance; }
    void setAppearance(Appearance appearance);
    bool dark() const;

    QColor primary() const;
    QColor secondary() const;
    QColor tertiaryLabelColor() const;
    QColor red() const;
    QColor orange() const;
    QColor green() const;
    QColor blue() const;
    QColor windowBackgroundColor() const;
    QColor controlBackgroundColor() const;
    QColor separatorColor() const;
    QColor accentColor() const;
    QColor progressTrackColor() const;

    // What QUILLMERE_APPEARANCE asks for; System when it is unset or unknown, and always in a
    // shipped build.
    static Appearance requestedAppearance();
    // Whether the desktop itself is dark: its colour scheme where Qt knows it, else how dark
    // the application palette's window colour is.
    static bool desktopIsDark();

Q_SIGNALS:
    void appearanceChanged();
    void colorsChanged();

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    QColor pick(QColor light, QColor dark) const { return this->dark() ? dark : light; }

    Appearance m_appearance;
};
