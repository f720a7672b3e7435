// SPDX-License-Identifier: Apache-2.0
#include "readers/apart/Message.hpp"

#include "anchor/Error.hpp"
#include "readers/apart/Channel.hpp"
#include "readers/apart/PieceMessages.hpp"

#include <array>
#include <cstdint>
#include <fcntl.h>
#include <limits>
#include <random>
#include <string>
#include <unistd.h>
#include <vector>

#include <gtest/gtest.h>
#include <sys/socket.h>

namespace {

using namespace Tidewatch::Apart;
using Tidewatch::Structure;

Structure someStructure() {
    Structure structure;
    structure.kind = "bundle file";
    structure.notCarried = {"a", "b"};
    Structure::Grid grid;
    grid.name = "g";
    grid.charts = {{"C", "GEOGCS[\"a\"]"}};
    grid.fragments = {{"f", std::array<std::uint64_t, 3>{1, 2, 3}, std::nullopt}};
    Structure::Skeleton skeleton;
    skeleton.object = "/s";
    skeleton.dimension = -1;
    skeleton.refinement = {1, -2};
    Structure::Field field{"Positions", "point", {}};
    field.pieces.push_back({"f", {"/x", 7, "point", {2, 3, 4}}, Structure::Lattice{{1, 2, 3}, {4, 5, 6}}});
    field.pieces.push_back({std::nullopt, {"/y", 8, "point", {5}}, std::nullopt});
    field.encoding = Sheaf::FieldEncoding{"stored", "how", &typeid(short), 0.5, -3.0, -32768.0L};
    skeleton.representations.push_back({"C", {field}});
    grid.skeletons.push_back(skeleton);
    grid.statement.step = {0.01, 0.02, 0.5};
    grid.statement.offset = {-1, 0, 1e6};
    grid.statement.gpsTime = Sheaf::FileStatement::GpsTime::Adjusted;
    grid.statement.fileSourceId = 65535;
    grid.statement.systemIdentifier = "scanner";
    grid.statement.records = {{"Somebody", 7, "said", {1, 0, 255}}, {"", 0, "", {}}};
    structure.slices.push_back({2.5, {grid}});
    return structure;
}

std::string bytesOf(const Structure& structure) {
    return MessageWriter().structure(structure).bytes();
}

TEST(Message, StructureComesOutAsItWentIn) {
    const std::string bytes = bytesOf(someStructure());
    MessageReader reader(bytes);
    const Structure back = reader.structure();
    EXPECT_NO_THROW(reader.finish());
    EXPECT_EQ(bytesOf(back), bytes);
    EXPECT_EQ(back.slices.at(0)
                  .grids.at(0)
                  .skeletons.at(0)
                  .representations.at(0)
                  .fields.at(0)
                  .pieces.at(0)
                  .lattice->spacing[2],
              6);
    EXPECT_EQ(back.slices[0].grids[0].statement, someStructure().slices[0].grids[0].statement);
    EXPECT_EQ(back.slices[0].grids[0].charts.at(0).referenceSystem, "GEOGCS[\"a\"]");
    const auto& encoding = back.slices[0].grids[0].skeletons[0].representations[0].fields[0].encoding;
    ASSERT_TRUE(encoding);
    EXPECT_EQ(encoding->name + encoding->description, "storedhow");
    EXPECT_EQ(*encoding->type, typeid(short));
    EXPECT_EQ(encoding->scale, 0.5);
    EXPECT_EQ(encoding->offset, -3.0);
    EXPECT_EQ(encoding->noData, -32768.0L);
}

TEST(Message, InvalidStatementsAndEncodingsAreFormatErrors) {
    const auto refuses = [](const std::string& from, const std::string& to) {
        std::string bytes = bytesOf(someStructure());
        const std::size_t place = bytes.find(from);
        ASSERT_NE(place, std::string::npos);
        ASSERT_EQ(from.size(), to.size());
        bytes.replace(place, from.size(), to);
        MessageReader reader(bytes);
        EXPECT_THROW(static_cast<void>(reader.structure()), Anchor::FormatError);
    };
    using namespace std::string_literals;
    // Each of these comes once: the encoding of GPS times, the file source id, a record's id, the entry's type.
    refuses("\x02\x01\xff\xff\0\0"s, "\x03\x01\xff\xff\0\0"s);
    refuses("\x02\x01\xff\xff\0\0"s, "\x02\x01\xff\xff\1\0"s);
    refuses("Somebody\x07\0\0\0"s, "Somebody\x07\0\1\0"s);
    refuses("\x04\x19stored"s, "\x0b\x19stored"s);
    refuses("\x04\x19stored"s, "\x00\x19stored"s);
}

TEST(Message, CutOffAtEachLengthIsAFormatError) {
    const std::string bytes = bytesOf(someStructure());
    for (std::size_t length = 0; length < bytes.size(); ++length) {
        EXPECT_THROW(
            {
                MessageReader reader(std::string_view(bytes).substr(0, length));
                static_cast<void>(reader.structure());
            },
            Anchor::FormatError)
            << length;
    }
}

TEST(Message, CountsBeyondTheMessageAreRefusedBeforeAnythingIsAllocated) {
    MessageWriter writer;
    writer.number32(0xffffffff);
    MessageReader reader(writer.bytes());
    EXPECT_THROW(static_cast<void>(reader.texts()), Anchor::FormatError);
}

TEST(Message, AnyBytesAreAStructureOrAFormatError) {
    const std::string good = bytesOf(someStructure());
    std::size_t accepted = 0;
    for (unsigned seed = 0; seed < 20'000; ++seed) {
        std::mt19937 random(seed);
        std::string bytes = good;
        for (unsigned left = 1 + random() % 4; left > 0; --left)
            bytes[random() % bytes.size()] = static_cast<char>(random());
        try {
            MessageReader reader(bytes);
            static_cast<void>(reader.structure());
            ++accepted;
        } catch (const Anchor::FormatError&) {
        }
    }
    EXPECT_GT(accepted, 0u);
    EXPECT_LT(accepted, 20'000u);
}

/// Whether what a child says of pieces is accepted; false if it is not valid.
bool accepts(PieceMessages& pieces, MessageType type, const MessageWriter& message,
             std::uint64_t memory = 100) {
    MessageReader reader(message.bytes());
    try {
        return pieces.accept(type, reader, memory);
    } catch (const Anchor::FormatError&) {
        return false;
    }
}

MessageWriter filled(std::uint64_t begin, std::uint64_t count, std::uint64_t place) {
    return MessageWriter().number64(begin).number64(count).number64(place);
}

TEST(PieceMessages, TogetherAreTheArray) {
    PieceMessages pieces(1000);
    EXPECT_TRUE(accepts(pieces, MessageType::Filled, filled(900, 100, 0)));
    EXPECT_EQ(pieces.piece().begin, 900U);
    EXPECT_EQ(pieces.piece().place, 0U);
    const MessageWriter data = MessageWriter().number64(890).raw("ten bytes.");
    EXPECT_TRUE(accepts(pieces, MessageType::Data, data));
    EXPECT_EQ(pieces.piece().bytes, "ten bytes.");
    EXPECT_TRUE(accepts(pieces, MessageType::NeedMemory, MessageWriter().number64(890)));
    EXPECT_EQ(pieces.piece().count, 890U);
    EXPECT_FALSE(pieces.isComplete());
    EXPECT_TRUE(accepts(pieces, MessageType::Filled, filled(0, 890, 10), 900));
    EXPECT_TRUE(pieces.isComplete());
    EXPECT_FALSE(accepts(pieces, MessageType::Data, MessageWriter().number64(0).raw("x")));
    EXPECT_TRUE(PieceMessages(0).isComplete());
    // Others are somebody else's.
    EXPECT_FALSE(accepts(pieces, MessageType::Progress, MessageWriter().real(1)));
}

TEST(PieceMessages, OutsideTheArrayOrTheMemoryAreRefused) {
    constexpr std::uint64_t largest = std::numeric_limits<std::uint64_t>::max();
    PieceMessages pieces(1000);
    for (const auto& [begin, count, place] : std::vector<std::array<std::uint64_t, 3>>{{0, 101, 0},
                                                                                       {0, 100, 1},
                                                                                       {0, 1, 100},
                                                                                       {951, 50, 0},
                                                                                       {1001, 0, 0},
                                                                                       {largest, 2, 0},
                                                                                       {2, largest, 0},
                                                                                       {0, 2, largest},
                                                                                       {0, largest, 1}})
        EXPECT_FALSE(accepts(pieces, MessageType::Filled, filled(begin, count, place))) << begin;
    EXPECT_FALSE(accepts(pieces, MessageType::Data, MessageWriter().number64(999).raw("xx")));
    EXPECT_FALSE(accepts(pieces, MessageType::NeedMemory, MessageWriter().number64(1001)));
    // Cut off, and with something behind.
    EXPECT_FALSE(accepts(pieces, MessageType::Filled, MessageWriter().number64(0).number64(1)));
    EXPECT_FALSE(accepts(pieces, MessageType::Filled, filled(0, 1, 0).byte(0)));
    EXPECT_FALSE(accepts(pieces, MessageType::Data, MessageWriter().number32(0)));
    EXPECT_TRUE(accepts(pieces, MessageType::Filled, filled(950, 50, 50)));
}

TEST(Channel, MessageAndDescriptorsArriveAsTheyWereSent) {
    auto [a, b] = Channel::pair();
    std::array<int, 2> pipe{};
    ASSERT_EQ(::pipe(pipe.data()), 0);
    ASSERT_TRUE(a.send(MessageType::Progress, MessageWriter().real(0.5), std::span<const int>(pipe)));
    const auto message = b.receive();
    ASSERT_TRUE(message);
    EXPECT_EQ(message->type, MessageType::Progress);
    EXPECT_EQ(MessageReader(message->payload).real(), 0.5);
    ASSERT_EQ(message->descriptors.size(), 2u);
    EXPECT_EQ(::fcntl(message->descriptors[0].get(), F_GETFD), FD_CLOEXEC);
    ASSERT_EQ(::write(message->descriptors[1].get(), "x", 1), 1);
    char read = 0;
    EXPECT_EQ(::read(pipe[0], &read, 1), 1);
    ::close(pipe[0]);
    ::close(pipe[1]);
}

TEST(Channel, OtherEndThatIsGoneOrSendsNoMessageIsNoMessage) {
    {
        auto [a, b] = Channel::pair();
        b.close();
        EXPECT_FALSE(a.receive());
        EXPECT_FALSE(a.send(MessageType::Progress));
    }
    for (const std::string& bytes : {std::string("\0\0\0\0\1", 5), std::string("\xff\xff\xff\xff\1", 5),
                                     std::string("\5\0\0\0\1ab", 7), std::string("\1", 1)}) {
        auto [a, b] = Channel::pair();
        ASSERT_EQ(::send(b.descriptor(), bytes.data(), bytes.size(), 0), static_cast<ssize_t>(bytes.size()));
        b.close();
        EXPECT_FALSE(a.receive());
    }
}

} // namespace
