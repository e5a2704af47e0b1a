// SPDX-License-Identifier: MIT
#include "qttexts.h"

#include <QCoreApplication>
#include <QLibraryInfo>
#include <QLocale>
#include <QTranslator>

bool QtTexts::installSpanish(QCoreApplication &application) {
    auto *translator = new QTranslator(&application);
    // "qt_es" gathers the catalogues of every Qt module there is one for.
    if (!translator->load(QLocale(QLocale::Spanish), QStringLiteral("qt"), QStringLiteral("_"),
                          QLibraryInfo::path(QLibraryInfo::TranslationsPath))) {
        delete translator;
        return false;
    }
    return QCoreApplication::installTranslator(translator);
}
