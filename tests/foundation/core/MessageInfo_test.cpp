#include <gtest/gtest.h>

#include "core/Exception.h"
#include "core/Messages.h"
#include "core/MessageInfo.h"

using namespace Vantu;

namespace {

// Builds a block in the loadable format: one record with a language-0 text and an absent language 1.
std::vector<unsigned char> Block(const std::string& domain, uint32_t id, const std::u16string& text) {
    std::vector<unsigned char> b;
    auto u32 = [&](uint32_t v) { for (int i = 0; i < 4; ++i) b.push_back((v >> (8 * i)) & 0xFF); };
    u32(1);
    u32(domain.size());
    b.insert(b.end(), domain.begin(), domain.end());
    u32(id);
    u32(2);
    b.push_back(1);
    u32(text.size() * 2);
    for (char16_t c : text) { b.push_back(c & 0xFF); b.push_back(c >> 8); }
    b.push_back(0);
    return b;
}

}  // namespace

TEST(MessageInfo, RendersLoadedTextWithParametersInOrder) {
    auto block = Block("TESTDOM", 7, u"Slice %2 of index %1 (%3).");
    VantuMessages::Load(block.data(), block.size(), "test");
    auto info = MessageInfo::Make("TESTDOM", 7, __FILE__, __LINE__, 12, std::string("m\xC3\xA9"), MessageInfo::EMPTY_PARAM_VALUE);
    EXPECT_EQ(info->GetMsg(), u"Slice m\u00e9 of index 12 ().");
    EXPECT_EQ(info->GetMsg(true), u"[TESTDOM 7] Slice m\u00e9 of index 12 ().");
    EXPECT_EQ(VantuMessages::ReadMessage("TESTDOM", 7, 1), u"");
}

TEST(MessageInfo, TruncatedBlockIsRefusedWholeAndUnknownIdsRenderAPlaceholder) {
    auto block = Block("TESTDOM", 8, u"never seen");
    EXPECT_THROW(VantuMessages::Load(block.data(), block.size() - 3, "cut"), Exception);
    EXPECT_EQ(VantuMessages::ReadMessage("TESTDOM", 8), u"[TESTDOM message 8]");
}

TEST(Exception, CloneAndRethrowKeepTheMessageAcrossCopies) {
    Exception e = Exception::FromText(u"disk on fire");
    std::unique_ptr<BaseException> copy(e.Clone());
    EXPECT_EQ(copy->What(), u"disk on fire");
    EXPECT_THROW(copy->Rethrow(), Exception);
}
