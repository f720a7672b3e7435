// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "las/LasCase.hpp"
#include "support/BundleBuilder.hpp"
#include "support/ConsoleCapture.hpp"
#include "support/TemporaryFolder.hpp"
#include "support/WrittenLas.hpp"

#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

/// An exporter with a bundle, a folder of its own and nothing on the console. Files are plain LAS 1.4 unless
/// a test says otherwise.
struct LasExport : ::testing::Test {
    LasExport() {
        exporter.bundleptr = bundle;
        exporter.OutputPath = folder / "cloud.las";
        exporter.uncompressed = true;
        exporter.Day = 1;
        exporter.Year = 2024;
    }

    /// Runs the exporter, which may have nothing to complain of, and reads the file back.
    Support::WrittenLas exported(const std::string& name = "cloud.las") {
        EXPECT_TRUE(exporter.Run());
        EXPECT_THAT(exporter.Errors, ::testing::IsEmpty());
        return Support::WrittenLas::read(folder / name);
    }

    [[nodiscard]] static Support::Points pointsOnALine(std::size_t count) {
        Support::Points points;
        for (std::size_t i = 0; i < count; ++i)
            points.push_back({static_cast<double>(i), 1, 2});
        return points;
    }

    Support::TemporaryFolder folder;
    Support::ConsoleCapture console;
    Anchor::StrongPtr<Sheaf::Bundle> bundle = Anchor::makeStrong<Sheaf::Bundle>();
    Support::FilteringLasExporter exporter;
};
