#include "rkv/xml/RKVXMLPushParser.h"

#include <algorithm>
#include <climits>
#include <memory>
#include <random>
#include <utility>

#include <expat.h>

#include "rkv/xml/internal/RKVXMLEncodings.h"

namespace rkv {

namespace {

// XML_Parse copies what it is given into the parser's own buffer, which a reset keeps: a parser
// that has read a larger document is freed rather than kept for the thread's next one.
constexpr size_t kLargestReusedDocument = 256 * 1024;

// XML_Parse takes an int length.
constexpr size_t kChunkBytes = size_t{1} << 30;

// The salt of expat's name hash tables, drawn once per process. expat would otherwise read fresh
// entropy from the kernel for every parser, a system call per document; one secret salt keeps
// the protection against crafted colliding names.
unsigned long hashSalt() {
  static const unsigned long salt = [] {
    std::random_device entropy;
    unsigned long value = 0;
    for (size_t i = 0; i < sizeof(value) / sizeof(unsigned int); ++i)
      value = (value << (8 * sizeof(unsigned int))) | entropy();
    return value != 0 ? value : 0x9e3779b97f4a7c15UL;
  }();
  return salt;
}

// One expat parser per thread, reset and reused by the thread's next document (creating one
// costs about as much as reading a small wrapper document). A parse that finds the slot taken
// (a parse started from within another's callbacks) makes a parser of its own.
struct ParserDeleter {
  void operator()(XML_Parser parser) const noexcept { XML_ParserFree(parser); }
};
using ExpatParser = std::unique_ptr<XML_ParserStruct, ParserDeleter>;

thread_local ExpatParser cachedParser;

ExpatParser takeParser() {
  ExpatParser parser = std::move(cachedParser);
  if (parser && XML_ParserReset(parser.get(), nullptr) == XML_TRUE) return parser;
  return ExpatParser(XML_ParserCreate(nullptr));
}

void giveBackParser(ExpatParser parser, size_t documentBytes) {
  if (!cachedParser && documentBytes <= kLargestReusedDocument) cachedParser = std::move(parser);
}

// Encodings expat does not know itself (it knows UTF-8, UTF-16, ISO-8859-1 and US-ASCII): a
// single-byte one is described to it by its byte table; any other stays unknown and the
// document fails.
int XMLCALL onUnknownEncoding(void*, const XML_Char* name, XML_Encoding* info) {
  const internal::RKVSingleByteTable* table =
      name != nullptr ? internal::singleByteEncodingTable(name) : nullptr;
  if (table == nullptr) return XML_STATUS_ERROR;
  std::copy(table->begin(), table->end(), info->map);
  info->data = nullptr;
  info->convert = nullptr;  // single bytes only
  info->release = nullptr;
  return XML_STATUS_OK;
}

}  // namespace

struct RKVXMLPushParser::Impl {
  XML_Parser parser = nullptr;
  RKVXMLPushParserDelegate* delegate = nullptr;
  size_t depth = 0;
  size_t maximumDepth = 0;
  bool inCDATA = false;
  bool depthExceeded = false;

  static void XMLCALL onStart(void* data, const XML_Char* name, const XML_Char** attributes) {
    auto* self = static_cast<Impl*>(data);
    if (++self->depth > self->maximumDepth) {
      self->depthExceeded = true;
      XML_StopParser(self->parser, XML_FALSE);
      return;
    }
    self->delegate->didStartElement(name, RKVXMLAttributes(attributes));
  }

  static void XMLCALL onEnd(void* data, const XML_Char* name) {
    auto* self = static_cast<Impl*>(data);
    --self->depth;
    self->delegate->didEndElement(name);
  }

  static void XMLCALL onCharacters(void* data, const XML_Char* text, int length) {
    auto* self = static_cast<Impl*>(data);
    std::string_view piece(text, static_cast<size_t>(length));
    if (self->inCDATA) {
      self->delegate->foundCDATA(piece);
    } else {
      self->delegate->foundCharacters(piece);
    }
  }

  static void XMLCALL onStartCDATA(void* data) { static_cast<Impl*>(data)->inCDATA = true; }
  static void XMLCALL onEndCDATA(void* data) { static_cast<Impl*>(data)->inCDATA = false; }

  static void XMLCALL onComment(void* data, const XML_Char* text) {
    static_cast<Impl*>(data)->delegate->foundComment(text);
  }
};

RKVXMLPushParser::RKVXMLPushParser(std::string_view bytes) : bytes_(bytes) {}

RKVXMLPushParser::~RKVXMLPushParser() = default;

bool RKVXMLPushParser::parse(RKVXMLPushParserDelegate& delegate) {
  if (used_) {
    error_ = RKVXMLParseError{XML_ERROR_FINISHED, "parser already used", 0, 0};
    return false;
  }
  used_ = true;

  ExpatParser owned = takeParser();
  if (!owned) {
    error_ = RKVXMLParseError{XML_ERROR_NO_MEMORY, XML_ErrorString(XML_ERROR_NO_MEMORY), 0, 0};
    delegate.parseErrorOccurred(*error_);
    return false;
  }
  XML_Parser parser = owned.get();
  Impl impl;
  impl.parser = parser;
  impl.delegate = &delegate;
  impl.maximumDepth = maximumDepth_;
  XML_SetHashSalt(parser, hashSalt());
  // A reset keeps this handler, but a new parser has none; setting it costs one store.
  XML_SetUnknownEncodingHandler(parser, &onUnknownEncoding, nullptr);
  XML_SetUserData(parser, &impl);
  XML_SetElementHandler(parser, &Impl::onStart, &Impl::onEnd);
  XML_SetCharacterDataHandler(parser, &Impl::onCharacters);
  XML_SetCdataSectionHandler(parser, &Impl::onStartCDATA, &Impl::onEndCDATA);
  if (reportsComments_) XML_SetCommentHandler(parser, &Impl::onComment);
  // Parameter entities (and with them any external DTD) are never read.
  XML_SetParamEntityParsing(parser, XML_PARAM_ENTITY_PARSING_NEVER);

  std::string_view rest = bytes_;
  XML_Status status = XML_STATUS_OK;
  do {
    size_t length = rest.size() < kChunkBytes ? rest.size() : kChunkBytes;
    bool final = length == rest.size();
    status = XML_Parse(parser, rest.data(), static_cast<int>(length), final ? 1 : 0);
    rest.remove_prefix(length);
  } while (status == XML_STATUS_OK && !rest.empty());

  if (status == XML_STATUS_OK) {
    giveBackParser(std::move(owned), bytes_.size());
    return true;
  }
  RKVXMLParseError error;
  if (impl.depthExceeded) {
    error.code = RKVXMLParseError::kDepthLimitExceeded;
    error.description = "elements nested deeper than the limit of " + std::to_string(maximumDepth_);
  } else {
    XML_Error code = XML_GetErrorCode(parser);
    error.code = code;
    const XML_LChar* text = XML_ErrorString(code);
    error.description = text ? text : "unknown error";
  }
  error.line = XML_GetCurrentLineNumber(parser);
  error.column = XML_GetCurrentColumnNumber(parser);
  giveBackParser(std::move(owned), bytes_.size());
  error_ = error;
  delegate.parseErrorOccurred(error);
  return false;
}

}  // namespace rkv
