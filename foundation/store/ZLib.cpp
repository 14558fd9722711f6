#include "store/ZLib.h"

#include <zlib.h>

#include <string>

namespace VantuCompression {

namespace {

[[noreturn]] void Fail(const char* step, int code, const z_stream& stream) {
    Vantu::ThrowStream<CompressionException>(std::string("zlib ") + step + " failed (" + std::to_string(code) +
                                             "): " + (stream.msg ? stream.msg : zError(code)));
}

}  // namespace

struct ZLib::Streams {
    z_stream deflater{};
    z_stream inflater{};
    bool deflaterReady = false;
    bool inflaterReady = false;
    bool inflateEnded = false;
};

ZLib::ZLib(int mode, int level, int windowBits)
    : mode_(mode), level_(level), windowBits_(windowBits), streams_(std::make_unique<Streams>()) {
    if (mode < 0 || mode > 2 || level < 0 || level > 9 || windowBits < 8 || windowBits > 15) {
        Vantu::ThrowStream<CompressionException>("Invalid zlib settings: mode " + std::to_string(mode) + ", level " +
                                                 std::to_string(level) + ", window " + std::to_string(windowBits));
    }
}

ZLib::~ZLib() {
    if (streams_->deflaterReady) deflateEnd(&streams_->deflater);
    if (streams_->inflaterReady) inflateEnd(&streams_->inflater);
}

int ZLib::FormatBits() const {
    if (mode_ == 0) return -windowBits_;
    return mode_ == 2 ? windowBits_ + 16 : windowBits_;
}

void ZLib::CompressInit(BuffersInfo& buffers) {
    z_stream& s = streams_->deflater;
    const int code = streams_->deflaterReady
                         ? deflateReset(&s)
                         : deflateInit2(&s, level_, Z_DEFLATED, FormatBits(), 8, Z_DEFAULT_STRATEGY);
    if (code != Z_OK) Fail("deflateInit", code, s);
    streams_->deflaterReady = true;
    runningCount_ = 0;
}

void ZLib::Compress(BuffersInfo& buffers) {
    if (!streams_->deflaterReady) CompressInit(buffers);
    const int code = Run(true, buffers, Z_NO_FLUSH);
    // Z_BUF_ERROR only says that no progress was possible: the caller drains or refills and calls again.
    if (code != Z_OK && code != Z_BUF_ERROR) Fail("deflate", code, streams_->deflater);
}

bool ZLib::CompressEnd(BuffersInfo& buffers) {
    if (!streams_->deflaterReady) CompressInit(buffers);
    const int code = Run(true, buffers, Z_FINISH);
    if (code == Z_STREAM_END) return true;
    if (code != Z_OK && code != Z_BUF_ERROR) Fail("deflate", code, streams_->deflater);
    return false;
}

void ZLib::DecompressInit(BuffersInfo& buffers) {
    z_stream& s = streams_->inflater;
    const int code = streams_->inflaterReady ? inflateReset(&s) : inflateInit2(&s, FormatBits());
    if (code != Z_OK) Fail("inflateInit", code, s);
    streams_->inflaterReady = true;
    streams_->inflateEnded = false;
    runningCount_ = 0;
}

bool ZLib::Decompress(BuffersInfo& buffers) {
    if (!streams_->inflaterReady) DecompressInit(buffers);
    if (streams_->inflateEnded) return true;
    const int code = Run(false, buffers, Z_NO_FLUSH);
    if (code == Z_STREAM_END) {
        streams_->inflateEnded = true;
        return true;
    }
    if (code == Z_NEED_DICT) Fail("inflate", Z_DATA_ERROR, streams_->inflater);
    if (code != Z_OK && code != Z_BUF_ERROR) Fail("inflate", code, streams_->inflater);
    return false;
}

// One zlib call over the windows; the counters of BuffersInfo advance by what zlib took and gave.
int ZLib::Run(bool deflating, BuffersInfo& buffers, int flush) {
    z_stream& s = deflating ? streams_->deflater : streams_->inflater;
    s.next_in = buffers.input.data() + buffers.inputUsed;
    s.avail_in = buffers.InputLeft();
    s.next_out = buffers.output.data() + buffers.outputFill;
    s.avail_out = buffers.OutputRoom();
    const unsigned int inBefore = s.avail_in;
    const unsigned int outBefore = s.avail_out;
    const int code = deflating ? deflate(&s, flush) : inflate(&s, flush);
    const unsigned int taken = inBefore - s.avail_in;
    const unsigned int given = outBefore - s.avail_out;
    buffers.inputUsed += taken;
    buffers.outputFill += given;
    runningCount_ += deflating ? given : taken;
    return code;
}

}  // namespace VantuCompression
