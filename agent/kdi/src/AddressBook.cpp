#include "AddressBook.h"

#include <cstring>

namespace Kdi {

AddressBook::AddressBook() : m_Addresses(1, V6Bytes{}) {}

AddressBook::Key AddressBook::ToKey(const uint8_t* bytes) {
    Key key;
    std::memcpy(&key.first, bytes, sizeof key.first);
    std::memcpy(&key.second, bytes + sizeof key.first, sizeof key.second);
    return key;
}

Address AddressBook::Take(const uint8_t* bytes) {
    const Key key = ToKey(bytes);
    if (key.Empty()) return {0, 6};
    const auto [number, isNew] = m_Numbers.Insert(key);
    if (isNew) {
        *number = static_cast<uint32_t>(m_Addresses.size());
        V6Bytes copy;
        std::memcpy(copy.data(), bytes, copy.size());
        m_Addresses.push_back(copy);
    }
    return {*number, 6};
}

Address AddressBook::Find(const uint8_t* bytes) const {
    const Key key = ToKey(bytes);
    if (key.Empty()) return {0, 6};
    const uint32_t* number = m_Numbers.Find(key);
    return number ? Address{*number, 6} : Address{};
}

}  // namespace Kdi
