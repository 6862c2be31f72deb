#pragma once
// Names shared by every reader and writer of the options: the keys of both
// catalogues and the element and attribute names of the options file. Plain
// character arrays, so the shared library holds no global object to construct.

namespace Tessel::OptionName {

// General set.
inline constexpr char ExcludeLibrary[] = "ExcludeLibrary";
inline constexpr char TargetLib[] = "TargetLib";
inline constexpr char OverwriteDesigns[] = "OverwriteDesigns";

// IFF set, in the order of its defaults.
inline constexpr char HierarchyOption[] = "HierarchyOption";
inline constexpr char DefaultLibraryPath[] = "DefaultLibraryPath";
inline constexpr char PromptForUserMessage[] = "PromptForUserMessage";
inline constexpr char ExportProjects[] = "ExportProjects";
inline constexpr char ExportOverwriteIFF[] = "ExportOverwriteIFF";
inline constexpr char ExportVersion[] = "ExportVersion";
inline constexpr char ExportIgnoreDisabled[] = "ExportIgnoreDisabled";
inline constexpr char ExportLumoProperties[] = "ExportLumoProperties";
inline constexpr char ExportUseSpaceInValues[] = "ExportUseSpaceInValues";
inline constexpr char ExportStoreSchemAnnotPos[] = "ExportStoreSchemAnnotPos";
inline constexpr char ExportPrefixLibNameToCellName[] = "ExportPrefixLibNameToCellName";
inline constexpr char ExportIgnoreIffPathProperty[] = "ExportIgnoreIffPathProperty";
inline constexpr char ImportRemoveIFF[] = "ImportRemoveIFF";
inline constexpr char ImportLayoutLibraryInstances[] = "ImportLayoutLibraryInstances";
inline constexpr char ImportInteractive[] = "ImportInteractive";
inline constexpr char ImportSynchronizeConnectorByNodeName[] =
    "ImportSynchronizeConnectorByNodeName";
inline constexpr char ImportPortWireLabel[] = "ImportPortWireLabel";
inline constexpr char ImportVersion[] = "ImportVersion";
inline constexpr char ImportVerboseMode[] = "ImportVerboseMode";
inline constexpr char ImportIgnoreIffPathProperty[] = "ImportIgnoreIffPathProperty";
inline constexpr char ImportLayoutMeanderAsPath[] = "ImportLayoutMeanderAsPath";
inline constexpr char ImportLayoutMeanderAsPolygon[] = "ImportLayoutMeanderAsPolygon";
inline constexpr char ImportLayoutPinSnapMode[] = "ImportLayoutPinSnapMode";
inline constexpr char ImportMentorArcMode[] = "ImportMentorArcMode";
inline constexpr char ImportShallowArcTolerance[] = "ImportShallowArcTolerance";
inline constexpr char ImportLayoutViewTypeLayerMapping[] = "ImportLayoutViewTypeLayerMapping";
inline constexpr char ImportOverwriteExistingDesign[] = "ImportOverwriteExistingDesign";

// The options file.
inline constexpr char DefaultOptionsFile[] = "./Tessel.opt";
inline constexpr char DocumentType[] = "Tessel_Options";
inline constexpr char RootElement[] = "TesselOptions";
inline constexpr char GeneralOptionsElement[] = "GeneralOptions";
inline constexpr char IFFOptionsElement[] = "IFFOptions";
inline constexpr char OptionElement[] = "Option";
inline constexpr char NameAttribute[] = "name";
inline constexpr char ValueAttribute[] = "value";
inline constexpr char TipAttribute[] = "tip";

// Reserved for a namespaced form of the file; the file itself uses none, and
// the reader does not ask for one.
inline constexpr char NamespacePrefix[] = "qvo";
inline constexpr char NamespaceQualifier[] = "qvo:";
inline constexpr char NamespaceUri[] = "http://kiva51.example.org/quarry/Tessel";

} // namespace Tessel::OptionName
