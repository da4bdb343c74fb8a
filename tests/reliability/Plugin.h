// SPDX-License-Identifier: Apache-2.0
/// \file
/// What a plugin that is loaded at run time offers its host: to throw each error of the library, and to catch it.
#pragma once

namespace reliability {

/// The number of kinds of errors that `Throw` knows.
constexpr int ErrorKinds = 11;

/// Throws the error of this kind, with the text "thrown".
using ThrowFunction = void (*)(int kind);

/// Calls `thrower` and returns whether exactly the error of this kind came, with its text, as its own class and as
/// each of its bases.
using CatchFunction = bool (*)(ThrowFunction thrower, int kind);

/// Makes a call to a tool that ends in it, and lets the error out.
using CallFunction = void (*)(const char* program);

}  // namespace reliability
