// SPDX-License-Identifier: MIT
#include "apierror.h"

APIError::APIError(Case errorCase, int httpStatus)
    : m_case(errorCase)
    , m_httpStatus(httpStatus)
{
}

APIError::APIError(Case errorCase, int httpStatus, std::optional<StorageRefusal> storageRefusal)
    : m_case(errorCase)
    , m_httpStatus(httpStatus)
    , m_storageRefusal(std::move(storageRefusal))
{
}

APIError APIError::signInPage(Case errorCase, int httpStatus)
{
    APIError error(errorCase, httpStatus);
    error.m_signInPage = true;
    return error;
}

APIError APIError::busy(Case errorCase, int httpStatus,
                        std::optional<std::chrono::milliseconds> retryAfter)
{
    APIError error(errorCase, httpStatus);
    error.m_retryAfter = retryAfter;
    return error;
}

QString APIError::localizedDescription() const
{
    if (m_signInPage)
        return QStringLiteral("La red pide iniciar sesión en el navegador");
    return errorDescription();
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
