// The zlib compressor of every compressed unit: deflate and inflate steps over BuffersInfo windows.
// One thread at a time; the two directions keep separate states and may alternate.
#pragma once

#include <memory>

#include "store/BaseCompression.h"

namespace VantuCompression {

class ZLib : public BaseCompression {
public:
    // mode 1: a plain zlib unit (header and Adler-32), the only one the stores write; 0: raw deflate;
    // 2: gzip. level 0..9; windowBits 8..15.
    ZLib(int mode = 1, int level = 6, int windowBits = 15);
    ~ZLib() override;

    void CompressInit(BuffersInfo& buffers) override;
    void Compress(BuffersInfo& buffers) override;
    bool CompressEnd(BuffersInfo& buffers) override;
    void DecompressInit(BuffersInfo& buffers) override;
    bool Decompress(BuffersInfo& buffers) override;

    int Level() const { return level_; }

private:
    struct Streams;

    int Run(bool deflating, BuffersInfo& buffers, int flush);
    int FormatBits() const;

    int mode_;
    int level_;
    int windowBits_;
    std::unique_ptr<Streams> streams_;
};

}  // namespace VantuCompression
