// SPDX-License-Identifier: Apache-2.0
#include "support/apigen/Encoders.h"

#include "support/apigen/Envelope.h"

APIGEN_INSTANTIATE_ENCODERS(std::string);
APIGEN_INSTANTIATE_ENCODERS(int);
APIGEN_INSTANTIATE_ENCODERS(long);
APIGEN_INSTANTIATE_ENCODERS(unsigned short);
APIGEN_INSTANTIATE_ENCODERS(unsigned int);
APIGEN_INSTANTIATE_ENCODERS(unsigned long);
APIGEN_INSTANTIATE_ENCODERS(apigen::Guid);
APIGEN_INSTANTIATE_ENCODERS(apigen::Handle);

// No list of booleans: nothing carries one, and std::vector<bool> has no elements to read into.
template APIGEN_API void apigen::Serialize(IData&, const std::string&, const bool&);
template APIGEN_API void apigen::Deserialize(const IData&, const std::string&, bool&);
template APIGEN_API void apigen::Serialize(IData&, const std::string&, const apigen::Optional<bool>&);
template APIGEN_API void apigen::Deserialize(const IData&, const std::string&, apigen::Optional<bool>&);

apigen::Handle apigen::HandleUtils::FromData(const IData& data) {
    Handle handle;
    Deserialize(data, envelope::HandleKey, handle);
    return handle;
}
