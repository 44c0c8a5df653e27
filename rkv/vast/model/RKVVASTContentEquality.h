// Field-by-field equality of what reading VAST produced: two ads (or creatives, or media files)
// are equal when every value a reader or merge sets is equal, lists in order and entries compared
// by content, not by identity. State that is not content is left out: whether an ad was handed
// out (consumed) and whether a tracking event was consumable. Stateless; any thread, as long as
// nothing changes the objects meanwhile.
#pragma once

#include "rkv/RKVExport.h"
#include "rkv/vast/model/RKVVASTAd.h"
#include "rkv/vast/model/RKVVASTCreativeCompanion.h"
#include "rkv/vast/model/RKVVASTCreativeIcon.h"
#include "rkv/vast/model/RKVVASTCreativeLinear.h"
#include "rkv/vast/model/RKVVASTCreativeNonLinear.h"
#include "rkv/vast/model/RKVVASTMediaFile.h"

namespace rkv {

// The kind (inline, wrapper or neither), the attributes and texts, validity, wrapper depth, the
// ad-tag URL of a wrapper, every list (impressions, error pixels, viewability events, creatives of
// each kind, verifications) and the extension.
RKV_EXPORT bool isEqualContent(const RKVVASTAd& a, const RKVVASTAd& b);
// The attributes, texts and resources, the media files and icons of a linear creative, and what
// every creative carries (tracking events, click-through, click tracking, universal ad ids).
RKV_EXPORT bool isEqualContent(const RKVVASTCreativeLinear& a, const RKVVASTCreativeLinear& b);
RKV_EXPORT bool isEqualContent(const RKVVASTCreativeNonLinear& a,
                               const RKVVASTCreativeNonLinear& b);
RKV_EXPORT bool isEqualContent(const RKVVASTCreativeCompanion& a,
                               const RKVVASTCreativeCompanion& b);
RKV_EXPORT bool isEqualContent(const RKVVASTCreativeIcon& a, const RKVVASTCreativeIcon& b);
// Every attribute and the URL.
RKV_EXPORT bool isEqualContent(const RKVVASTMediaFile& a, const RKVVASTMediaFile& b);

}  // namespace rkv
