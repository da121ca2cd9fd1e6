#pragma once

#include <type_traits>
#include <utility>
#include <variant>

namespace velmora {

/// A value or the reason there is none; what C++23 calls std::expected, reduced to what the
/// library needs.
template<typename T, typename E> class Expected
{
public:
    Expected(const T &value)
        : m_data(std::in_place_index<0>, value)
    { }
    Expected(T &&value)
        : m_data(std::in_place_index<0>, std::move(value))
    { }
    Expected(const E &error)
        : m_data(std::in_place_index<1>, error)
    { }
    Expected(E &&error)
        : m_data(std::in_place_index<1>, std::move(error))
    { }

    bool hasValue() const { return m_data.index() == 0; }
    explicit operator bool() const { return hasValue(); }

    const T &value() const & { return std::get<0>(m_data); }
    T &value() & { return std::get<0>(m_data); }
    T &&value() && { return std::get<0>(std::move(m_data)); }
    const E &error() const & { return std::get<1>(m_data); }

    const T *operator->() const { return &value(); }
    const T &operator*() const & { return value(); }

private:
    static_assert(!std::is_same_v<T, E>, "value and error types must differ");
    std::variant<T, E> m_data;
};

} // namespace velmora
