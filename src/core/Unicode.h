#pragma once

// Unicode helpers shared by the matcher and the search (grapheme clusters, case mapping,
// canonical equivalence, character properties). Filled in with the matcher.
