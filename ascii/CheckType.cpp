// SPDX-License-Identifier: Apache-2.0
#include "ascii/CheckType.hpp"

#include "anchor/Console.hpp"
#include "ascii/writeElements.hpp"
#include "ascii/writeEsriGrid.hpp"

namespace ExportLib {

std::filesystem::path elementsPath(std::filesystem::path path) {
    if (path.stem() == positionsName)
        path.replace_filename("XYZ_Coordinates");
    // Appended as text: a dot in a fragment's name does not start an extension.
    path += ".asc";
    return path;
}

template <class T>
bool CheckType::exec<T>::Break(CheckType& c) {
    if (c.field.getElementType() != typeid(T))
        return false;
    if (!c.data)
        return true;
    if (const auto lattice = uniformPositions(c)) {
        if constexpr (Scalar<T>)
            writeEsriGrid<T>(c, *lattice);
        else
            Anchor::Console() << "Can only convert scalar fields";
    } else {
        writeElements<T>(c);
    }
    return true;
}

#define TIDEWATCH_ROW(TYPE) template struct CheckType::exec<TYPE>;
TIDEWATCH_ASCII_ELEMENT_TYPES(TIDEWATCH_ROW)
#undef TIDEWATCH_ROW

void dispatch(CheckType& c) {
#define TIDEWATCH_ROW(TYPE)                                                                                  \
    if (CheckType::exec<TYPE>::Break(c))                                                                     \
        return;
    TIDEWATCH_ASCII_ELEMENT_TYPES(TIDEWATCH_ROW)
#undef TIDEWATCH_ROW
}

} // namespace ExportLib
