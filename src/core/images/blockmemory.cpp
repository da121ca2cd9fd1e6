#include "images/blockmemory.h"

#include <QtGlobal>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <limits>

#ifdef Q_OS_LINUX
#include <sys/mman.h>
#endif

namespace velmora::detail {

namespace {

constexpr size_t hugePage = size_t(2) << 20;

#ifdef Q_OS_LINUX
void *mapAnonymous(size_t bytes)
{
    void *mapped = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    return mapped == MAP_FAILED ? nullptr : mapped;
}

bool isHugePageAligned(const void *address)
{
    return (reinterpret_cast<quintptr>(address) & (hugePage - 1)) == 0;
}

// Maps `bytes`, a multiple of 2 MiB, starting on a huge-page boundary, so that the block can be
// made of huge pages. Recent kernels align such mappings themselves; elsewhere the block is cut
// out of a larger mapping. Every unmapping flushes the other threads' TLBs, so the first try
// makes none.
char *mapAligned(size_t bytes)
{
    void *mapped = mapAnonymous(bytes);
    if (mapped && !isHugePageAligned(mapped)) {
        munmap(mapped, bytes);
        mapped = nullptr;
        const size_t slack = hugePage;
        if (bytes > std::numeric_limits<size_t>::max() - slack)
            return nullptr;
        void *larger = mapAnonymous(bytes + slack);
        if (!larger)
            return nullptr;
        const auto start = reinterpret_cast<quintptr>(larger);
        const quintptr aligned = (start + hugePage - 1) & ~quintptr(hugePage - 1);
        const size_t head = aligned - start;
        if (head)
            munmap(larger, head);
        if (slack - head)
            munmap(reinterpret_cast<void *>(aligned + bytes), slack - head);
        mapped = reinterpret_cast<void *>(aligned);
    }
    if (!mapped)
        return nullptr;
    // Advice only: without huge pages the block is still one mapping, faulted in page by page.
    madvise(mapped, bytes, MADV_HUGEPAGE);
    return static_cast<char *>(mapped);
}
#endif

// A partial huge page at the end would be faulted in 4 KiB at a time: for a 5 MB body that is
// most of its faults. Rounding up costs under 2 MiB per block.
size_t hugePageRounded(size_t bytes)
{
    return (bytes + hugePage - 1) & ~(hugePage - 1);
}

// What QImage gives a line of its own images: whole 32-bit words.
qsizetype bytesPerLine(QSize size, QImage::Format format)
{
    const qsizetype bits = qsizetype(size.width()) * QImage::toPixelFormat(format).bitsPerPixel();
    return ((bits + 31) >> 5) << 2;
}

// An image's share of its arena's block, released on whichever thread drops the image last.
void releaseShare(void *share)
{
    delete static_cast<std::shared_ptr<MemoryBlock> *>(share);
}

} // namespace

std::shared_ptr<MemoryBlock> MemoryBlock::reserve(size_t bytes)
{
    if (bytes == 0 || bytes > size_t(std::numeric_limits<qsizetype>::max()) / 2)
        return nullptr;
#ifdef Q_OS_LINUX
    if (bytes >= hugePage) {
        const size_t mappedBytes = hugePageRounded(bytes);
        char *data = mapAligned(mappedBytes);
        if (!data)
            return nullptr;
        return std::shared_ptr<MemoryBlock>(new MemoryBlock(data, mappedBytes, true));
    }
#endif
    char *data = static_cast<char *>(std::malloc(bytes));
    if (!data)
        return nullptr;
    return std::shared_ptr<MemoryBlock>(new MemoryBlock(data, bytes, false));
}

MemoryBlock::~MemoryBlock()
{
#ifdef Q_OS_LINUX
    if (m_mapped) {
        munmap(m_data, m_size);
        return;
    }
#endif
    std::free(m_data);
}

FrameArena::FrameArena(qsizetype imageBytes, int imageCount)
{
    if (imageBytes <= 0 || imageCount <= 0
        || imageBytes > std::numeric_limits<qsizetype>::max() / imageCount)
        return;
    // A smaller animation would take part of one huge page: the heap serves it as well.
    const qsizetype total = imageBytes * imageCount;
    if (total >= qsizetype(hugePage))
        m_block = MemoryBlock::reserve(size_t(total));
}

QImage FrameArena::newImage(QSize size, QImage::Format format)
{
    const qsizetype lineBytes = bytesPerLine(size, format);
    const qsizetype bytes = lineBytes * size.height();
    if (!m_block || size.isEmpty() || bytes > qsizetype(m_block->size()) - m_used)
        return QImage(size, format);
    uchar *pixels = reinterpret_cast<uchar *>(m_block->data()) + m_used;
    m_used += bytes;
    return QImage(pixels, size.width(), size.height(), lineBytes, format, &releaseShare,
                  new std::shared_ptr<MemoryBlock>(m_block));
}

QImage FrameArena::copyOf(const QImage &image)
{
    QImage copy = newImage(image.size(), image.format());
    if (copy.isNull())
        return copy;
    const size_t lineBytes = size_t(std::min(image.bytesPerLine(), copy.bytesPerLine()));
    for (int y = 0; y < image.height(); ++y)
        std::memcpy(copy.scanLine(y), image.constScanLine(y), lineBytes);
    copy.setColorTable(image.colorTable());
    return copy;
}

} // namespace velmora::detail
