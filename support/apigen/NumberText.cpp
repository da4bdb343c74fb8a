// SPDX-License-Identifier: Apache-2.0
#include "support/apigen/NumberText.h"

#include <ios>
#include <locale>
#include <sstream>

namespace apigen {

template <class T>
T ExtractNumber(std::string_view text, bool isHex) {
    std::istringstream stream{std::string(text)};
    stream.imbue(std::locale::classic());
    if (isHex) stream >> std::hex;
    T value = 0;
    stream >> value;
    return value;
}

template APIGEN_API int ExtractNumber(std::string_view, bool);
template APIGEN_API long ExtractNumber(std::string_view, bool);
template APIGEN_API unsigned short ExtractNumber(std::string_view, bool);
template APIGEN_API unsigned int ExtractNumber(std::string_view, bool);
template APIGEN_API unsigned long ExtractNumber(std::string_view, bool);

}  // namespace apigen
