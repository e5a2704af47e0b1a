// SPDX-License-Identifier: MIT
#pragma once

#include <memory>

// One TurboJPEG instance, owned. Each preview makes its own, so concurrent previews share
// nothing.
class JpegHandle {
public:
    enum class Kind { Decompress, Compress };

    explicit JpegHandle(Kind kind);

    bool isValid() const { return m_handle != nullptr; }
    void *get() const { return m_handle.get(); }

private:
    struct Destroy {
        void operator()(void *handle) const;
    };
    std::unique_ptr<void, Destroy> m_handle;
};
