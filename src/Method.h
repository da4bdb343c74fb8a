// SPDX-License-Identifier: Apache-2.0
/// \file
/// What a remote method is on the wire. Proxies call through these descriptors and the service binds the
/// same ones, so the two sides can't disagree.
#pragma once

#include <array>
#include <string_view>
#include <type_traits>

namespace zamclientlib {

/// One remote method of an interface.
template <class I, class Pointer, class R, class... A>
struct Method {
    using Interface = I;
    using Result = R;

    Pointer Member;                                   ///< the interface's method
    std::string_view Id;                              ///< names it on the wire
    std::string_view Signature;                       ///< its declaration, for error messages
    std::array<std::string_view, sizeof...(A)> Keys;  ///< of the arguments, in order
};

/// Describes a method; does not compile unless there are as many keys as arguments.
template <class I, class R, class... A, class... Keys>
constexpr auto Describe(R (I::*member)(A...), std::string_view id, std::string_view signature, Keys... keys) {
    static_assert(sizeof...(Keys) == sizeof...(A), "one key for each argument");
    return Method<I, R (I::*)(A...), R, A...>{member, id, signature, {keys...}};
}
/// \overload
template <class I, class R, class... A, class... Keys>
constexpr auto Describe(R (I::*member)(A...) const, std::string_view id, std::string_view signature,
                        Keys... keys) {
    static_assert(sizeof...(Keys) == sizeof...(A), "one key for each argument");
    return Method<I, R (I::*)(A...) const, R, A...>{member, id, signature, {keys...}};
}

/// The methods of interface `I`: a specialisation has `template <class V> static void ForEach(V&& visit)`.
template <class I>
struct MethodsOf;

}  // namespace zamclientlib
