#pragma once

#include "velm/XmlObject.h"

namespace OSTREL {

// What packet filters and payload filters share. A base only: it has no element name.
class CFilterBase : public VelmCore::CIdNameDescObject {};

}  // namespace OSTREL
