// SPDX-License-Identifier: MIT
import QtQuick

// Text a person reads on a screen, which screen readers and other assistive tools read too.
Text {
    Accessible.role: Accessible.StaticText
    Accessible.name: text
}
