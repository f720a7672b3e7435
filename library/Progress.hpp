// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/ReferenceBase.hpp"
#include "anchor/StrongPtr.hpp"

#include <functional>
#include <string>

namespace Tidewatch {

/// How far the work has come, for a host that wants to show it, and where a host stops the work: whatever an
/// operation throws ends the work and passes to the caller. As it stands here it shows nothing and stops nothing.
///
/// Work has a size in some unit and consists of pieces; reading an array tells its share of the piece at hand. Called
/// on the thread that does the work, check() many times a second.
class TIDEWATCH_API Progress : public Anchor::ReferenceBase<Progress> {
public:
    ~Progress() override;

    /// Work of a size begins, counted in a unit that is given in the plural.
    virtual void begin(const std::string& text, double total, const std::string& unit);

    /// A piece begins: so much of the work is done, and so much this piece adds.
    virtual void piece(double done, double size);

    /// What is being done changes.
    virtual void say(const std::string& text);

    /// The share (0 to 1) of the piece that is done, while a file is read.
    virtual void tick(const std::string& file, double share);

    /// The work is over.
    virtual void end();

    /// Asks whether the work is to go on.
    virtual void check();

    /// tick() as readers take it; keeps the object alive. Empty for a null reference.
    [[nodiscard]] static std::function<void(const std::string&, double)>
    ticker(Anchor::StrongPtr<Progress> progress);
};

} // namespace Tidewatch
