#include "kestrine/platform/data/type.h"

// Defined out of line, not in the header, so each identifier is one exported object in the
// library's read-only data rather than a value compiled into every client.
namespace kestrine::platform::data::type {

namespace asset::v1 {
const unsigned int IAsset::_kID = 1;
const unsigned int IResource::_kID = 2;
}  // namespace asset::v1

namespace xref::v1 {
const unsigned int IXRef::_kID = 3;
const unsigned int IXRefTarget::_kID = 4;
const unsigned int IXRefProduct::_kID = 5;
const unsigned int IXRefTargetResolution::_kID = 6;
}  // namespace xref::v1

namespace gfx::v1 {
const unsigned int IMesh::_kID = 7;
const unsigned int IVertexSet::_kID = 8;
const unsigned int IScene::_kID = 9;
const unsigned int IRenderingSet::_kID = 10;
const unsigned int IRenderingNode::_kID = 11;
const unsigned int IRenderingMesh::_kID = 12;
const unsigned int ISubMesh::_kID = 13;
const unsigned int ILight::_kID = 14;
const unsigned int ICamera::_kID = 15;
const unsigned int IMaterial::_kID = 16;
const unsigned int IAspect::_kID = 17;
const unsigned int ITexture::_kID = 18;
const unsigned int ITextureSource::_kID = 19;
const unsigned int IEnvironment::_kID = 20;
const unsigned int IProceduralGeometry::_kID = 21;
const unsigned int ISceneEffect::_kID = 22;
const unsigned int IBounds::_kID = 23;
const unsigned int IChoice::_kID = 24;
const unsigned int IChoiceList::_kID = 25;
}  // namespace gfx::v1

}  // namespace kestrine::platform::data::type
