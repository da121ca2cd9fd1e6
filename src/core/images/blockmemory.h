#pragma once

#include <QImage>
#include <QSize>

#include <memory>

namespace velmora::detail {

/// Memory for megabyte-sized buffers that the loader's and the decoders' threads fill while the
/// GUI thread runs: downloaded image bodies and decoded frames.
///
/// Why not malloc: a 100-frame banner is 5 MB of body and 30 MB of frames, and faulting fresh
/// memory in 4 KiB at a time grows the page tables that all of the process's threads share. On
/// virtual machines that shadow page tables, the GUI thread pays for that growth each time it
/// is switched back in: passes of 5-10 ms of CPU holding a single 2 us timer event were seen.
/// A block of 2 MiB or more is mapped on its own, on a 2 MiB boundary, and advised for
/// transparent huge pages where the system has them, so that the tables grow by one entry per
/// 2 MiB instead; smaller blocks come from the heap.
class MemoryBlock
{
public:
    /// A block of `bytes`, or null when the system refuses it.
    static std::shared_ptr<MemoryBlock> reserve(size_t bytes);
    ~MemoryBlock();
    MemoryBlock(const MemoryBlock &) = delete;
    MemoryBlock &operator=(const MemoryBlock &) = delete;

    char *data() const { return m_data; }
    size_t size() const { return m_size; }

private:
    MemoryBlock(char *data, size_t size, bool mapped)
        : m_data(data)
        , m_size(size)
        , m_mapped(mapped)
    { }

    char *m_data;
    size_t m_size;
    bool m_mapped;
};

/// Room for the frames of one animation in a single block, handed out image by image. The
/// block lives until the arena and every image cut from it are gone.
class FrameArena
{
public:
    /// Room for `imageCount` images of `imageBytes` each. Requests too small to gain from a
    /// block of their own, and a block the system refuses, leave the arena without one: its
    /// images are then ordinary ones.
    FrameArena(qsizetype imageBytes, int imageCount);

    /// An image of `size` and `format` whose pixels live in the block while it has room for
    /// them, an ordinary image otherwise; null only when memory ran out.
    QImage newImage(QSize size, QImage::Format format);
    /// A copy of `image` made with newImage().
    QImage copyOf(const QImage &image);

private:
    std::shared_ptr<MemoryBlock> m_block;
    qsizetype m_used = 0;
};

} // namespace velmora::detail
