// SPDX-License-Identifier: MIT
#include "quillmereliveapp.h"

#include <QApplication>

int main(int argc, char *argv[]) {
    QApplication application(argc, argv);
    QuillmereLiveApp live;
    if (!live.start())
        return 1;
    return QApplication::exec();
}
