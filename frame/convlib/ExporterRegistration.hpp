// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "dial/ValueCreator.hpp"
#include "sheaf/TypeRegistry.hpp"

#include <tuple>

namespace ConvLib {

/// What the source unit of an exporter does when its library is loaded, and undoes when it is unloaded: it
/// announces the memory arrays that exporters may meet and keeps the creator of double parameters in being.
/// Each such unit has one of these objects as a static; the counts behind it see to it that everything
/// happens once, however many units there are.
class ExporterRegistration {
    template <class T>
    using Arrays =
        std::tuple<Sheaf::TypeRegistry::Announcement<1, T>, Sheaf::TypeRegistry::Announcement<2, T>,
                   Sheaf::TypeRegistry::Announcement<3, T>, Sheaf::TypeRegistry::Announcement<4, T>>;

    Arrays<double> doubles_;
    Arrays<Geom::PhysicalSpace::point> points_;
    Arrays<Sheaf::Element::FixedDoubles> fixedDoubles_;
    Dial::SharedValueCreator<double> valueCreator_;
};

} // namespace ConvLib
