// SPDX-License-Identifier: MIT
#include "apierror.h"

APIError::APIError(Case errorCase, int httpStatus)
    : m_case(errorCase)
    , m_httpStatus(httpStatus)
{
}

QString APIError::errorDescription(Case errorCase)
{
    switch (errorCase) {
    case authFailed:
        return QStringLiteral("Email o contraseña incorrectos");
    case sessionCreateFailed:
        return QStringLiteral("No se pudo crear la sesión");
    case sessionEndFailed:
        return QStringLiteral("No se pudo terminar la sesión");
    case presignFailed:
        return QStringLiteral("Error al preparar la subida");
    case uploadFailed:
        return QStringLiteral("Error al subir la imagen");
    case registerFailed:
        return QStringLiteral("Error al registrar la imagen");
    }
    qFatal("APIError: unknown case %d", static_cast<int>(errorCase));
}
