// SPDX-License-Identifier: MIT
#pragma once

class QCoreApplication;

// Qt's own texts (the folder dialog, standard buttons, text field menus) in Spanish, the
// screens' language, from the translations Qt ships, compiled into the program. Without them a
// Spanish program would ask for its folder in English.
class QtTexts {
public:
    // Installs them on the application, which keeps them; false where none could be loaded,
    // and Qt's texts stay in English.
    static bool installSpanish(QCoreApplication &application);
};
