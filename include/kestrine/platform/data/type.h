#ifndef KESTRINE_PLATFORM_DATA_TYPE_H_
#define KESTRINE_PLATFORM_DATA_TYPE_H_

#include "kestrine/platform/data/export.h"

// Type identifiers of the client-side asset, cross-reference and graphics interfaces. Each
// `_kID` is a constant exported by the data library, so clients compare identifiers by value
// without linking the interfaces' code. The values run from 1 to 25 in the order declared here.
// They are stored and exchanged between processes: they never change, and a new interface
// takes the next free value.
namespace kestrine::platform::data::type {

namespace asset::v1 {
struct KPL_DATA_API IAsset {
  static const unsigned int _kID;
};
struct KPL_DATA_API IResource {
  static const unsigned int _kID;
};
}  // namespace asset::v1

namespace xref::v1 {
struct KPL_DATA_API IXRef {
  static const unsigned int _kID;
};
struct KPL_DATA_API IXRefTarget {
  static const unsigned int _kID;
};
struct KPL_DATA_API IXRefProduct {
  static const unsigned int _kID;
};
struct KPL_DATA_API IXRefTargetResolution {
  static const unsigned int _kID;
};
}  // namespace xref::v1

namespace gfx::v1 {
struct KPL_DATA_API IMesh {
  static const unsigned int _kID;
};
struct KPL_DATA_API IVertexSet {
  static const unsigned int _kID;
};
struct KPL_DATA_API IScene {
  static const unsigned int _kID;
};
struct KPL_DATA_API IRenderingSet {
  static const unsigned int _kID;
};
struct KPL_DATA_API IRenderingNode {
  static const unsigned int _kID;
};
struct KPL_DATA_API IRenderingMesh {
  static const unsigned int _kID;
};
struct KPL_DATA_API ISubMesh {
  static const unsigned int _kID;
};
struct KPL_DATA_API ILight {
  static const unsigned int _kID;
};
struct KPL_DATA_API ICamera {
  static const unsigned int _kID;
};
struct KPL_DATA_API IMaterial {
  static const unsigned int _kID;
};
struct KPL_DATA_API IAspect {
  static const unsigned int _kID;
};
struct KPL_DATA_API ITexture {
  static const unsigned int _kID;
};
struct KPL_DATA_API ITextureSource {
  static const unsigned int _kID;
};
struct KPL_DATA_API IEnvironment {
  static const unsigned int _kID;
};
struct KPL_DATA_API IProceduralGeometry {
  static const unsigned int _kID;
};
struct KPL_DATA_API ISceneEffect {
  static const unsigned int _kID;
};
struct KPL_DATA_API IBounds {
  static const unsigned int _kID;
};
struct KPL_DATA_API IChoice {
  static const unsigned int _kID;
};
struct KPL_DATA_API IChoiceList {
  static const unsigned int _kID;
};
}  // namespace gfx::v1

}  // namespace kestrine::platform::data::type

#endif  // KESTRINE_PLATFORM_DATA_TYPE_H_
