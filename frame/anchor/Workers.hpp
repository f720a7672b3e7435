// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/ReferenceBase.hpp"

#include <cstddef>
#include <functional>

namespace Anchor {

/// Processors that a host lends. Exporters and readers start no threads of their own: where they can do parts of
/// their work side by side, they ask the workers to. The output is the same whatever their number.
///
/// What runs in a piece calls neither the host (progress, filters, console, observers) nor creators: these are called
/// on the thread that called the exporter or reader, in the same order as without workers.
class TIDEWATCH_API Workers : public ReferenceBase<Workers> {
public:
    ~Workers() override;

    /// How many pieces run at the same time, the calling thread's included; at least 1, and always the
    /// same number on one thread.
    [[nodiscard]] virtual unsigned count() const noexcept = 0;

    /// Calls piece(0) to piece(pieces - 1) once each, on any threads and begun roughly in this order; returns when all
    /// have returned. The calling thread must be one of these threads. Called by several threads at once if the host
    /// runs exporters in several threads; a piece does not call it. The pieces do not throw. Throws std::bad_alloc
    /// before any piece is called, else nothing.
    virtual void run(std::size_t pieces, const std::function<void(std::size_t piece)>& piece) = 0;
};

/// For exporters and readers: calls piece(0) to piece(pieces - 1), side by side by the workers. Without workers (null,
/// or one) on the calling thread in ascending order.
///
/// An exception of a piece passes through: that of the lowest number, so that it does not depend on timing; pieces
/// after it may have been called or not. `between`, if given, is called on the calling thread after each piece that
/// it runs, and may throw to stop: then no further piece is begun, and its exception passes through instead.
TIDEWATCH_API void runPieces(Workers* workers, std::size_t pieces,
                             const std::function<void(std::size_t piece)>& piece,
                             const std::function<void()>& between = {});

/// How many pieces run at the same time; 1 for null.
[[nodiscard]] TIDEWATCH_API unsigned workerCount(const Workers* workers) noexcept;

} // namespace Anchor
