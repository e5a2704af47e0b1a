// SPDX-License-Identifier: MIT
#include "jpegcoefficientstore.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <jpeglib.h>
#include <jerror.h>
#include <unistd.h>

// libjpeg declares this type and leaves it to its memory manager; ours defines it here.
struct jvirt_barray_control {
    JDIMENSION rows = 0;
    JDIMENSION blocksPerRow = 0;
    JDIMENSION maxAccess = 0;
    std::size_t rowCoefficients = 0;
    JDIMENSION residentRows = 0;
    std::vector<JCOEF> resident;
    off_t spillOffset = 0; // where row residentRows starts in the spill file
    std::vector<JCOEF> window;
    JDIMENSION windowStart = 0;
    JDIMENSION windowRows = 0;
    bool windowDirty = false;
    std::vector<JBLOCKROW> rowPointers;

    JBLOCKROW row(std::vector<JCOEF> &storage, JDIMENSION index) {
        return reinterpret_cast<JBLOCKROW>(storage.data() + std::size_t(index) * rowCoefficients);
    }
    std::size_t rowBytes() const { return rowCoefficients * sizeof(JCOEF); }
};

namespace {

[[noreturn]] void failIo(j_common_ptr common) {
    common->err->msg_code = JERR_FILE_READ;
    (*common->err->error_exit)(common);
    std::abort(); // error_exit does not return
}

bool transfer(bool write, int fd, void *data, std::size_t bytes, off_t offset) {
    auto *bytesAt = static_cast<char *>(data);
    while (bytes > 0) {
        const ssize_t done = write ? pwrite(fd, bytesAt, bytes, offset) : pread(fd, bytesAt, bytes, offset);
        if (done <= 0)
            return false;
        bytesAt += done;
        bytes -= std::size_t(done);
        offset += done;
    }
    return true;
}

} // namespace

struct JpegCoefficientStore::Hooks {
    static JpegCoefficientStore &store(j_common_ptr common) {
        return *static_cast<JpegCoefficientStore *>(common->client_data);
    }

    static jvirt_barray_ptr request(j_common_ptr common, int, boolean, JDIMENSION blocksPerRow,
                                    JDIMENSION rows, JDIMENSION maxAccess) {
        auto array = std::make_unique<jvirt_barray_control>();
        array->rows = rows;
        array->blocksPerRow = blocksPerRow;
        array->maxAccess = std::max<JDIMENSION>(1, std::min(maxAccess, rows));
        array->rowCoefficients = std::size_t(blocksPerRow) * DCTSIZE2;
        JpegCoefficientStore &owner = store(common);
        owner.m_arrays.push_back(std::move(array));
        return owner.m_arrays.back().get();
    }

    // Every array is known once the decompressor realizes them: the first rows of each, in
    // order, are kept in memory as far as the budget goes, the rest go to the spill file.
    static void realize(j_common_ptr common) {
        JpegCoefficientStore &owner = store(common);
        owner.m_realizeOthers(common);
        std::size_t budget = owner.m_budget;
        off_t spilled = 0;
        for (const auto &array : owner.m_arrays) {
            if (!array->resident.empty() || !array->window.empty())
                continue;
            const std::size_t rowBytes = std::max<std::size_t>(1, array->rowBytes());
            array->residentRows = JDIMENSION(std::min<std::size_t>(array->rows, budget / rowBytes));
            budget -= std::size_t(array->residentRows) * array->rowBytes();
            array->resident.assign(std::size_t(array->residentRows) * array->rowCoefficients, 0);
            array->spillOffset = spilled;
            spilled += off_t(array->rows - array->residentRows) * off_t(array->rowBytes());
            array->window.assign(std::size_t(array->maxAccess) * array->rowCoefficients, 0);
            array->rowPointers.resize(array->maxAccess);
        }
        if (spilled == 0)
            return;
        // Unlinked at once; a sparse file reads back zeros where nothing was written yet.
        owner.m_spill = std::tmpfile();
        if (owner.m_spill == nullptr || ftruncate(fileno(owner.m_spill), spilled) != 0)
            failIo(common);
    }

    static void moveWindow(j_common_ptr common, jvirt_barray_control &array, bool write) {
        const int fd = fileno(store(common).m_spill);
        for (JDIMENSION i = 0; i < array.windowRows; ++i) {
            const JDIMENSION index = array.windowStart + i;
            JCOEF *windowRow = array.window.data() + std::size_t(i) * array.rowCoefficients;
            if (index < array.residentRows) {
                JCOEF *residentRow = array.resident.data() + std::size_t(index) * array.rowCoefficients;
                if (write)
                    std::memcpy(residentRow, windowRow, array.rowBytes());
                else
                    std::memcpy(windowRow, residentRow, array.rowBytes());
                continue;
            }
            const off_t offset =
                array.spillOffset + off_t(index - array.residentRows) * off_t(array.rowBytes());
            if (!transfer(write, fd, windowRow, array.rowBytes(), offset))
                failIo(common);
        }
    }

    static void flush(j_common_ptr common, jvirt_barray_control &array) {
        if (array.windowDirty)
            moveWindow(common, array, true);
        array.windowDirty = false;
    }

    static JBLOCKARRAY access(j_common_ptr common, jvirt_barray_ptr array, JDIMENSION start,
                              JDIMENSION count, boolean writable) {
        if (count > array->maxAccess || start + count > array->rows)
            failIo(common);
        if (start + count <= array->residentRows) {
            // Rows the window may also hold are written back first, and the window forgotten.
            if (array->windowRows > 0 && array->windowStart < array->residentRows) {
                flush(common, *array);
                array->windowRows = 0;
            }
            for (JDIMENSION i = 0; i < count; ++i)
                array->rowPointers[i] = array->row(array->resident, start + i);
            return array->rowPointers.data();
        }
        if (array->windowRows == 0 || start < array->windowStart ||
            start + count > array->windowStart + array->windowRows) {
            flush(common, *array);
            array->windowStart = start;
            array->windowRows = std::min(array->maxAccess, array->rows - start);
            moveWindow(common, *array, false);
        }
        array->windowDirty = array->windowDirty || writable;
        for (JDIMENSION i = 0; i < count; ++i)
            array->rowPointers[i] = array->row(array->window, start - array->windowStart + i);
        return array->rowPointers.data();
    }
};

JpegCoefficientStore::JpegCoefficientStore(std::size_t residentBytes)
    : m_budget(residentBytes) {}

JpegCoefficientStore::~JpegCoefficientStore() {
    if (m_spill != nullptr)
        std::fclose(m_spill);
}

void JpegCoefficientStore::install(jpeg_decompress_struct &decompressor) {
    decompressor.client_data = this;
    jpeg_memory_mgr &memory = *decompressor.mem;
    m_realizeOthers = memory.realize_virt_arrays;
    memory.request_virt_barray = &Hooks::request;
    memory.realize_virt_arrays = &Hooks::realize;
    memory.access_virt_barray = &Hooks::access;
}
