// SPDX-License-Identifier: MIT
#include "qttexts.h"

#include <QCoreApplication>
#include <QLocale>
#include <QTranslator>

bool QtTexts::installSpanish(QCoreApplication &application) {
    // The catalogues of the modules whose texts the program shows: Qt Widgets' folder dialog
    // and standard buttons (qtbase), Qt Quick Controls' text field menus (qtdeclarative). They
    // are compiled into the program (src/app/CMakeLists.txt), since Windows and macOS
    // installs of Qt do not bring them along with the libraries.
    bool installed = false;
    for (const char *catalogue : {"qtbase", "qtdeclarative"}) {
        auto *translator = new QTranslator(&application);
        if (translator->load(QLocale(QLocale::Spanish), QString::fromLatin1(catalogue),
                             QStringLiteral("_"), QStringLiteral(":/i18n")) &&
            QCoreApplication::installTranslator(translator)) {
            installed = true;
        } else {
            delete translator;
        }
    }
    return installed;
}
