// SPDX-License-Identifier: MIT
#include "jpeghandle.h"

#include <cstring>
#include <turbojpeg.h>

JpegHandle::JpegHandle(Kind kind)
    : m_handle(kind == Kind::Decompress ? tjInitDecompress() : tjInitCompress()) {}

bool JpegHandle::onlyWarnedOfJunk() const {
    return tjGetErrorCode(m_handle.get()) == TJERR_WARNING &&
           std::strstr(tjGetErrorStr2(m_handle.get()), "extraneous bytes") != nullptr;
}

void JpegHandle::Destroy::operator()(void *handle) const {
    tjDestroy(handle);
}
