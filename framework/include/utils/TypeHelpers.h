// key_value_pair_t: the element of keyed tables; ordered by key alone, so a
// SortedVector of pairs is a map whose add() replaces an entry of equal key.
#ifndef ANDROID_TYPE_HELPERS_H
#define ANDROID_TYPE_HELPERS_H

namespace android {

template <typename KEY, typename VALUE>
struct key_value_pair_t {
    typedef KEY key_t;
    typedef VALUE value_t;

    KEY key;
    VALUE value;

    key_value_pair_t() : key(), value() {}
    key_value_pair_t(const KEY& k) : key(k), value() {}
    key_value_pair_t(const KEY& k, const VALUE& v) : key(k), value(v) {}

    bool operator<(const key_value_pair_t& o) const { return key < o.key; }
    bool operator==(const key_value_pair_t& o) const { return key == o.key; }
};

}  // namespace android

#endif
