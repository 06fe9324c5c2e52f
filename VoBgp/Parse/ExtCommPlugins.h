// The typed parser plug-ins that every BgpParseExtCommContainerSm starts, in
// start-up order. The order is part of the contract: route origin, route
// target, tunnel encapsulation, default gateway, link bandwidth, color,
// origin validation state, and last VRF route import, which runs only when
// the "Mvpn" feature toggle is on.
//
// A typed content registers its plug-in with one row here and the include of
// its header:
//
//     #include "VoBgp/Parse/ExtCommRouteTarget.h"
//     ...
//     X(BgpParseExtCommRouteTargetSm, false)
//
// Second column: true when the plug-in starts only with the "Mvpn" toggle on.
// The class derives from BgpParseExtCommPluginBaseSm, its constructor takes
// the collections and ends with handleStartup(), and it has the static
// factory
//
//     static Ptr <Class>Is(BgpParseExtCommRuleCollections::PtrConst const&);
//
// which the container calls (see BgpParseExtCommContainerSm::handleInitialized).
// VOBGP_PARSE_TYPED_PLUGIN (ExtCommTypedPlugin.h) declares such a class.
#pragma once

#include "VoBgp/Parse/ExtCommColor.h"
#include "VoBgp/Parse/ExtCommDefaultGateway.h"
#include "VoBgp/Parse/ExtCommLinkBandwidth.h"
#include "VoBgp/Parse/ExtCommOriginValidationState.h"
#include "VoBgp/Parse/ExtCommRouteOrigin.h"
#include "VoBgp/Parse/ExtCommRouteTarget.h"
#include "VoBgp/Parse/ExtCommTunnelEncap.h"
#include "VoBgp/Parse/ExtCommVrfRouteImport.h"

#define VOBGP_PARSE_EXT_COMM_PLUGINS(X)              \
    X(BgpParseExtCommRouteOriginSm, false)           \
    X(BgpParseExtCommRouteTargetSm, false)           \
    X(BgpParseExtCommTunnelEncapSm, false)           \
    X(BgpParseExtCommDefaultGatewaySm, false)        \
    X(BgpParseExtCommLinkBandwidthSm, false)         \
    X(BgpParseExtCommColorSm, false)                 \
    X(BgpParseExtCommOriginValidationStateSm, false) \
    X(BgpParseExtCommVrfRouteImportSm, true)
