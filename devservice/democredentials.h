// SPDX-License-Identifier: MIT
#pragma once

// The one account devservice knows. Tests sign in with it through the service itself, so the
// fixture reads it from here rather than keeping a second copy.
namespace DemoCredentials {
inline constexpr char email[] = "demo@quillmere.test";
inline constexpr char password[] = "demo1234";
} // namespace DemoCredentials
