// DXMP messages in memory: the exact bytes of an encoded frame, round trips, the limits a builder
// and a reader enforce, and reference counting.
#include <stdlib.h>
#include <string.h>

#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "dxmp_message.h"
#include "dxmp_test_util.h"

namespace {

using namespace vks_test;

std::string Bytes(std::initializer_list<uint8_t> bytes) {
    return std::string(bytes.begin(), bytes.end());
}

const std::string kChannel101 = Bytes({0x65, 0, 0, 0, 0, 0, 0, 0});
const std::string kResult7 = Bytes({7, 0, 0, 0});

TEST(DxmpMessage, NewHasMagicAndNothingElse) {
    MessagePtr msg = NewMessage();
    ASSERT_NE(msg, nullptr);
    const uint8_t expected[DXMP_FIXED_HEADER_LEN] = {'D', 'X'};
    EXPECT_EQ(0, memcmp(msg->pFixedHeader, expected, sizeof(expected)));
    void* data = nullptr;
    uint32_t length = 0;
    EXPECT_EQ(-1, dxmp_content(msg.get(), &data, &length));
    EXPECT_EQ("<absent>", Item(msg.get(), DXMP_ITEM_RESULT));
    EXPECT_EQ(nullptr, dxmp_message_new(1)) << "undefined flags are refused";
}

TEST(DxmpMessage, EncodesGoldenBytes) {
    MessagePtr msg =
        BuildMessage(1201, 2, {{DXMP_ITEM_CHANNEL_ID, kChannel101}, {DXMP_ITEM_RESULT, kResult7}}, "abc");
    ASSERT_NE(msg, nullptr);
    // Bytes 2, 3 and 6-7 go out exactly as the caller left them.
    msg->pFixedHeader[DXMP_HDR_BYTE2] = 0x5A;
    msg->pFixedHeader[DXMP_HDR_FLAGS_METHOD] = 0x82;
    msg->pFixedHeader[DXMP_HDR_STATUS] = 200;
    const std::vector<uint8_t> expected = {
        'D',  'X',  0x5A, 0x82, 0xB1, 0x04, 0xC8, 0x00,  // magic, byte 2, reply flag + method, uri, status
        0x27, 0x00, 0x00, 0x00, 0x02, 0x00, 0x00, 0x00,  // frame length 39, 2 items, reserved
        0x02, 0xB0, 0x08, 0x00, 0x65, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,  // 0xB002, 8 bytes: 101
        0x01, 0xB0, 0x04, 0x00, 0x07, 0x00, 0x00, 0x00,                          // 0xB001, 4 bytes: 7
        'a',  'b',  'c'};
    EXPECT_EQ(expected, Encode(msg.get()));
    // The library's own fields are stamped into the message as well.
    EXPECT_EQ(0, memcmp(msg->pFixedHeader, expected.data(), DXMP_FIXED_HEADER_LEN));
}

TEST(DxmpMessage, SecondSetOfATypeReplacesItInPlace) {
    MessagePtr msg = BuildMessage(7, 3, {{0x10, "first"}, {0x20, "x"}}, "");
    ASSERT_NE(msg, nullptr);
    ASSERT_EQ(0, dxmp_header_set(msg.get(), 0x10, "2nd", 3));
    const std::vector<uint8_t> bytes = Encode(msg.get());
    const std::vector<uint8_t> items(bytes.begin() + DXMP_FIXED_HEADER_LEN, bytes.end());
    EXPECT_EQ((std::vector<uint8_t>{0x10, 0, 3, 0, '2', 'n', 'd', 0x20, 0, 1, 0, 'x'}), items);
    EXPECT_EQ(2, bytes[DXMP_HDR_ITEM_COUNT]);
}

// Decoding what was encoded (into a message that held other data) is checked on the seed corpus of
// the frame fuzz target (tests/fuzz/corpus/dxmp_frame), every item slot and the largest item included.

TEST(DxmpMessage, BuilderRefusesWhatNoFrameCouldCarry) {
    MessagePtr msg = NewMessage();
    for (uint16_t i = 0; i < DXMP_MAX_ITEMS; ++i) {
        ASSERT_EQ(0, dxmp_header_set(msg.get(), i, "v", 1));
    }
    EXPECT_EQ(-1, dxmp_header_set(msg.get(), 0xFFFF, "v", 1)) << "one item too many";
    EXPECT_EQ(0, dxmp_header_set(msg.get(), 3, "w", 1)) << "replacing needs no new slot";

    MessagePtr big = NewMessage();
    std::vector<char> filler(DXMP_MAX_FRAME_LEN, 'f');
    const uint32_t room = DXMP_MAX_FRAME_LEN - DXMP_FIXED_HEADER_LEN;
    EXPECT_EQ(-1, dxmp_content_add(big.get(), filler.data(), room + 1, 0));
    ASSERT_EQ(0, dxmp_content_add(big.get(), filler.data(), room, 0));
    EXPECT_EQ(-1, dxmp_header_set(big.get(), 1, "", 0)) << "even an empty item adds 4 bytes";
    EXPECT_EQ(DXMP_MAX_FRAME_LEN, Encode(big.get()).size());

    EXPECT_EQ(-1, dxmp_header_set(msg.get(), 1, nullptr, 4));
    EXPECT_EQ(-1, dxmp_content_add(msg.get(), nullptr, 4, 0));
    EXPECT_EQ(-1, dxmp_content_add(msg.get(), "x", 1, 1)) << "undefined flags are refused";
    EXPECT_EQ(-1, dxmp_header_set(nullptr, 1, "x", 1));
    EXPECT_EQ(-1, dxmp_content_add(nullptr, "x", 1, 0));
}

TEST(DxmpMessage, ClearDropsItemsAndContentSeparately) {
    MessagePtr msg = BuildMessage(5, 2, {{1, "a"}, {2, "b"}}, "body");
    dxmp_header_clear(msg.get());
    EXPECT_EQ("<absent>", Item(msg.get(), 1));
    EXPECT_EQ("body", Content(msg.get()));
    ASSERT_EQ(0, dxmp_header_set(msg.get(), 3, "c", 1));
    dxmp_content_clear(msg.get());
    EXPECT_EQ("", Content(msg.get()));
    EXPECT_EQ("c", Item(msg.get(), 3));
    EXPECT_EQ(DXMP_FIXED_HEADER_LEN + 5u, Encode(msg.get()).size());
}

// A valid frame to damage: one 4-byte item and 3 bytes of content.
std::vector<uint8_t> ValidFrame() {
    MessagePtr msg = BuildMessage(9, 2, {{DXMP_ITEM_RESULT, kResult7}}, "xyz");
    return Encode(msg.get());
}

void PutLe32(std::vector<uint8_t>* frame, size_t offset, uint32_t v) {
    for (int i = 0; i < 4; ++i) {
        (*frame)[offset + i] = static_cast<uint8_t>(v >> (8 * i));
    }
}

// Damaged frames (declared lengths out of range or not the buffer's, bad magic, item counts and
// lengths that overrun, a cut fixed header) are refused_* seeds of the frame fuzz target, which
// checks that a refused decode leaves the message as it was.

TEST(DxmpMessage, FrameLengthReadsOnlyTheFixedHeader) {
    std::vector<uint8_t> frame = ValidFrame();
    uint32_t length = 0;
    ASSERT_EQ(0, dxmp_frame_length(frame.data(), &length));
    EXPECT_EQ(frame.size(), length);

    const uint32_t refused[] = {0, 15, DXMP_MAX_FRAME_LEN + 1, 0xFFFFFFFFu};
    for (uint32_t declared : refused) {
        PutLe32(&frame, DXMP_HDR_FRAME_LEN, declared);
        length = 7;
        EXPECT_EQ(-1, dxmp_frame_length(frame.data(), &length)) << declared;
        EXPECT_EQ(7u, length);
    }
    PutLe32(&frame, DXMP_HDR_FRAME_LEN, DXMP_MAX_FRAME_LEN);
    EXPECT_EQ(0, dxmp_frame_length(frame.data(), &length));
    EXPECT_EQ(DXMP_MAX_FRAME_LEN, length);
    frame[0] = 'd';
    EXPECT_EQ(-1, dxmp_frame_length(frame.data(), &length));
    EXPECT_EQ(-1, dxmp_frame_length(nullptr, &length));
    EXPECT_EQ(-1, dxmp_frame_length(frame.data(), nullptr));
}

TEST(DxmpMessage, AccessorsRefuseNullArguments) {
    MessagePtr msg = BuildMessage(1, 2, {{1, "a"}}, "b");
    void* out = nullptr;
    uint16_t len16 = 0;
    uint32_t len32 = 0;
    EXPECT_EQ(-1, dxmp_header_get(nullptr, 1, &out, &len16));
    EXPECT_EQ(-1, dxmp_header_get(msg.get(), 1, nullptr, &len16));
    EXPECT_EQ(-1, dxmp_header_get(msg.get(), 1, &out, nullptr));
    EXPECT_EQ(-1, dxmp_content(nullptr, &out, &len32));
    EXPECT_EQ(-1, dxmp_content(msg.get(), nullptr, &len32));
    EXPECT_EQ(-1, dxmp_content(msg.get(), &out, nullptr));
    EXPECT_EQ(nullptr, dxmp_message_encode(nullptr, &len32));
    EXPECT_EQ(nullptr, dxmp_message_encode(msg.get(), nullptr));
    EXPECT_EQ(-1, dxmp_message_decode(msg.get(), nullptr, 20));
    EXPECT_EQ(-1, dxmp_message_decode(nullptr, reinterpret_cast<const uint8_t*>("DX"), 2));
    dxmp_header_clear(nullptr);
    dxmp_content_clear(nullptr);
    dxmp_message_put(nullptr);
    EXPECT_EQ(nullptr, dxmp_message_get(nullptr));
}

// A leak or a double free here is reported by the sanitizer build.
TEST(DxmpMessage, ReferencesKeepTheMessageAliveUntilTheLastPut) {
    dxmp_message* msg = dxmp_message_new(0);
    ASSERT_NE(msg, nullptr);
    ASSERT_EQ(0, dxmp_content_add(msg, "payload", 7, 0));
    EXPECT_EQ(msg, dxmp_message_get(msg));
    dxmp_message_put(msg);
    EXPECT_EQ("payload", Content(msg)) << "one reference is left";

    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([msg] {
            for (int i = 0; i < 20000; ++i) {
                dxmp_message_put(dxmp_message_get(msg));
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    EXPECT_EQ("payload", Content(msg));
    dxmp_message_put(msg);
}

}  // namespace
