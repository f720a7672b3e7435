// SPDX-License-Identifier: Apache-2.0
//
// Writes seeds of MessageFuzz into the folder given: a structure with a bit of everything, and pieces of an array.
#include "readers/apart/Message.hpp"

#include <cstdio>
#include <filesystem>
#include <fstream>

int main(int argc, char** argv) {
    using Tidewatch::Structure;
    if (argc != 2) {
        std::fputs("usage: seeds-Message FOLDER\n", stderr);
        return 2;
    }
    Structure structure;
    structure.kind = "bundle file";
    structure.notCarried = {"something"};
    Structure::Field field{"Positions", "point", {}};
    field.pieces.push_back({"a", {"/a", 1, "point", {2, 3, 1}}, Structure::Lattice{{0, 0, 0}, {1, 1, 1}}});
    field.pieces.push_back({"b", {"/b", 2, "point", {4}}, {}});
    field.encoding = Sheaf::FieldEncoding{"stored"};
    Structure::Skeleton skeleton;
    skeleton.refinement = {1};
    skeleton.representations.push_back({"chart", {field}});
    Structure::Grid grid;
    grid.name = "grid";
    grid.charts = {{"chart", "LOCAL_CS[\"a\"]"}};
    grid.fragments.push_back({"a", std::array<std::uint64_t, 3>{1, 1, 0}, {}});
    grid.skeletons.push_back(skeleton);
    grid.statement.step = {0.01, 0.01, 0.01};
    grid.statement.gpsTime = Sheaf::FileStatement::GpsTime::Week;
    grid.statement.fileSourceId = 1;
    grid.statement.systemIdentifier = "scanner";
    grid.statement.records = {{"Somebody", 1, "", {1, 2, 3}}};
    structure.slices.push_back({1, {grid}});
    std::filesystem::create_directories(argv[1]);
    using Tidewatch::Apart::MessageType;
    using Tidewatch::Apart::MessageWriter;
    std::ofstream(std::filesystem::path(argv[1]) / "structure", std::ios::binary)
        << MessageWriter().structure(structure).bytes();
    MessageWriter pieces;
    const auto add = [&](MessageType type, const MessageWriter& message) {
        pieces.byte(static_cast<std::uint8_t>(type)).text(message.bytes());
    };
    add(MessageType::NeedMemory, MessageWriter().number64(300));
    add(MessageType::Filled, MessageWriter().number64(0).number64(300).number64(0));
    add(MessageType::Data, MessageWriter().number64(300).raw("some bytes"));
    std::ofstream(std::filesystem::path(argv[1]) / "pieces", std::ios::binary) << pieces.bytes();
    return 0;
}
