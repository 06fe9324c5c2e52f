// The typed parser plug-ins that no container starts by itself: a user who
// wants their contents appends them to the container, before the first value
// is parsed, e.g. all of them at once:
//
//     bgpParseExtCommOptInPluginsEnq(*container);
//
// Each row is a plug-in class (same contract as ExtCommPlugins.h) in the
// order bgpParseExtCommOptInPluginsEnq appends them. The default plug-ins
// serve none of these values, so the order between the two lists does not
// matter.
#pragma once

#include "VoBgp/Parse/ExtCommEvpn.h"
#include "VoBgp/Parse/ExtCommFlowspec.h"
#include "VoBgp/Parse/ExtCommTransLinkBandwidth.h"

#define VOBGP_PARSE_EXT_COMM_OPT_IN_PLUGINS(X) \
    X(BgpParseExtCommEvpnSm)                   \
    X(BgpParseExtCommFlowspecSm)               \
    X(BgpParseExtCommTransLinkBandwidthSm)

namespace Routing::Bgp {

// Appends every opt-in plug-in to `container`, each built on its collections.
inline void bgpParseExtCommOptInPluginsEnq(BgpParseExtCommContainerSm& container) {
#define VOBGP_PARSE_ENQ_PLUGIN_(Plugin) \
    container.extCommParserSmsEnq(Plugin::Plugin##Is(container.parseExtCommRuleCollections()));
    VOBGP_PARSE_EXT_COMM_OPT_IN_PLUGINS(VOBGP_PARSE_ENQ_PLUGIN_)
#undef VOBGP_PARSE_ENQ_PLUGIN_
}

}  // namespace Routing::Bgp
