// SPDX-License-Identifier: MIT
#include "jpegcoefficientstore.h"

#include <QTemporaryFile>
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <jpeglib.h>
#include <jerror.h>

// libjpeg declares this type and leaves it to its memory manager; ours defines it here.
struct jvirt_barray_control {
    JDIMENSION rows = 0;
    JDIMENSION blocksPerRow = 0;
    JDIMENSION maxAccess = 0;
    std::size_t rowCoefficients = 0;
    JDIMENSION residentRows = 0;
    std::vector<JCOEF> resident;
    qint64 spillOffset = 0; // where row residentRows starts in the spill file
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

bool transfer(bool write, QFile &file, void *data, std::size_t bytes, qint64 offset) {
    auto *bytesAt = static_cast<char *>(data);
    if (!file.seek(offset))
        return false;
    while (bytes > 0) {
        const qint64 done = write ? file.write(bytesAt, qint64(bytes)) : file.read(bytesAt, qint64(bytes));
        if (done <= 0)
            return false;
        bytesAt += done;
        bytes -= std::size_t(done);
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
        qint64 spilled = 0;
        for (const auto &array : owner.m_arrays) {
            if (!array->resident.empty() || !array->window.empty())
                continue;
            const std::size_t rowBytes = std::max<std::size_t>(1, array->rowBytes());
            array->residentRows = JDIMENSION(std::min<std::size_t>(array->rows, budget / rowBytes));
            budget -= std::size_t(array->residentRows) * array->rowBytes();
            array->resident.assign(std::size_t(array->residentRows) * array->rowCoefficients, 0);
            array->spillOffset = spilled;
            spilled += qint64(array->rows - array->residentRows) * qint64(array->rowBytes());
            array->window.assign(std::size_t(array->maxAccess) * array->rowCoefficients, 0);
            array->rowPointers.resize(array->maxAccess);
        }
        if (spilled == 0)
            return;
        // Grown, not written: where the file system has sparse files (all of the desktop ones
        // but FAT) this costs no disk until rows arrive, and unwritten parts read back as zeros.
        owner.m_spill = std::make_unique<QTemporaryFile>();
        if (!owner.m_spill->open() || !owner.m_spill->resize(spilled))
            failIo(common);
    }

    static void moveWindow(j_common_ptr common, jvirt_barray_control &array, bool write) {
        QFile &spill = *store(common).m_spill;
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
            const qint64 offset =
                array.spillOffset + qint64(index - array.residentRows) * qint64(array.rowBytes());
            if (!transfer(write, spill, windowRow, array.rowBytes(), offset))
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

JpegCoefficientStore::~JpegCoefficientStore() = default;

void JpegCoefficientStore::install(jpeg_decompress_struct &decompressor) {
    decompressor.client_data = this;
    jpeg_memory_mgr &memory = *decompressor.mem;
    m_realizeOthers = memory.realize_virt_arrays;
    memory.request_virt_barray = &Hooks::request;
    memory.realize_virt_arrays = &Hooks::realize;
    memory.access_virt_barray = &Hooks::access;
}
