// The extended community parser: a two-level tree of rules that turns a
// received value into a typed, not yet interned community object, and the
// plug-in machinery that fills the tree. This is the header to include; it
// brings in its parts:
//
//   ExtCommRuleKinds.def        the fourteen rule kinds (the root and the
//                               thirteen type rules), one row each, with
//                               every name of a kind spelled out
//   ExtCommRuleCollections.h    rule keys, their sets in the rule collections,
//                               and the parse control every rule is built with
//   ExtCommRules.h              rule bases, the type rules and the root rule
//   ExtCommPluginSm.h           the plug-in base state machine and the
//                               container that owns the parser
//   internal/ExtCommRuleTemplates.h  the generic templates the parts are made of
//
// Parsing walks root -> type rule (by type octet) -> sub-type rule (by
// subtype octet), whose inhale() builds the typed community (route target,
// link bandwidth, ...). Every miss on the way builds a generic fallback
// object instead, so parsing never fails.
//
// Typed communities are not wired in: each is a plug-in state machine
// (derived from BgpParseExtCommPluginBaseSm) that watches the rule
// collections. Every type rule registers a key for itself in the collections
// when it is built and removes it when it dies; each registration runs every
// plug-in's hook for that kind synchronously, and the hook adds the plug-in's
// sub-type rules to the rule behind the key. BgpParseExtCommContainerSm owns
// one collections object, the plug-ins, the root rule and the show-command
// cache, and builds them so that every plug-in listens before the first rule
// registers.
#pragma once

#include "VoBgp/Parse/ExtCommPluginSm.h"
#include "VoBgp/Parse/ExtCommRuleCollections.h"
#include "VoBgp/Parse/ExtCommRules.h"
