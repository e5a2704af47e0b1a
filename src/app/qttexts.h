// SPDX-License-Identifier: MIT
#pragma once

class QCoreApplication;

// Qt's own texts (the folder dialog, standard buttons, text field menus) in Spanish, the
// screens' language, from the translations Qt ships (Debian: qt6-translations-l10n). Without
// them a Spanish program would ask for its folder in English.
class QtTexts {
public:
    // Installs them on the application, which keeps them; false where they are not installed,
    // and Qt's texts stay in English.
    static bool installSpanish(QCoreApplication &application);
};
