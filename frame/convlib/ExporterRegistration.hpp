// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "dial/ValueCreator.hpp"
#include "sheaf/TypeRegistry.hpp"

#include <tuple>

namespace ConvLib {

/// What the source file of an exporter does when its library is loaded, and undoes when it is unloaded: it
/// announces the memory arrays that exporters may encounter and keeps the creator of double parameters alive.
/// Each exporter's source file has one static object of this class; reference counts ensure that everything
/// happens once, however many there are.
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
