#pragma once
// Fixed names and statements of the plug-in's conversation with the host.

namespace BrioConstants {
// The plug-in's own vocabulary, used when none is given.
inline constexpr char DefaultVocabulary[] = "Tessel_Voc";
// The command library's name; user messages run in this vocabulary.
inline constexpr char LibraryName[] = "CmdOp";
inline constexpr char InterfaceName[] = "BRIO";
// The variable through which query statements answer.
inline constexpr char ResultVariable[] = "mgcIntermediate";
inline constexpr char WorkspaceQuery[] = "mgcIntermediate=mgclink_get_workspace_path();";
inline constexpr char NetlistsQuery[] = "mgcIntermediate=mgclink_get_netlists_path();";
} // namespace BrioConstants
