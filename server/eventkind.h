#pragma once

// Event kinds the plug-in handles or sends.
namespace EventKind {
inline constexpr int NetList = 212;     // "eDoc_LUMONetList"
inline constexpr int FathomData = 213;  // "eDoc_FathomData"
inline constexpr int LibIFF = 222;      // "eDoc_LibIFF"
inline constexpr int UserDefined = 224; // "eDoc_UserDefined"
} // namespace EventKind
