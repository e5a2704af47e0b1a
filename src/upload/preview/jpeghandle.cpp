// SPDX-License-Identifier: MIT
#include "jpeghandle.h"

#include <turbojpeg.h>

JpegHandle::JpegHandle(Kind kind)
    : m_handle(kind == Kind::Decompress ? tjInitDecompress() : tjInitCompress()) {}

void JpegHandle::Destroy::operator()(void *handle) const {
    tjDestroy(handle);
}
