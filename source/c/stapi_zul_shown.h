// Fields of plain records that another thread may be showing in a dump while their owner writes them.
#pragma once

#include <type_traits>

template <typename Field>
[[nodiscard]] Field loadShown(const Field& field) {
    return __atomic_load_n(&field, __ATOMIC_RELAXED);
}

template <typename Field>
void storeShown(Field* field, std::type_identity_t<Field> value) {
    __atomic_store_n(field, value, __ATOMIC_RELAXED);
}
