#include "rkv/xml/RKVXMLPushParser.h"

#include <climits>

#include <expat.h>

namespace rkv {

namespace {

// One expat parser, released with its owner.
struct ExpatParser {
  XML_Parser parser = XML_ParserCreate(nullptr);
  ExpatParser() = default;
  ExpatParser(const ExpatParser&) = delete;
  ExpatParser& operator=(const ExpatParser&) = delete;
  ~ExpatParser() {
    if (parser) XML_ParserFree(parser);
  }
};

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

  ExpatParser expat;
  if (!expat.parser) {
    error_ = RKVXMLParseError{XML_ERROR_NO_MEMORY, XML_ErrorString(XML_ERROR_NO_MEMORY), 0, 0};
    delegate.parseErrorOccurred(*error_);
    return false;
  }
  Impl impl;
  impl.parser = expat.parser;
  impl.delegate = &delegate;
  impl.maximumDepth = maximumDepth_;
  XML_SetUserData(expat.parser, &impl);
  XML_SetElementHandler(expat.parser, &Impl::onStart, &Impl::onEnd);
  XML_SetCharacterDataHandler(expat.parser, &Impl::onCharacters);
  XML_SetCdataSectionHandler(expat.parser, &Impl::onStartCDATA, &Impl::onEndCDATA);
  if (reportsComments_) XML_SetCommentHandler(expat.parser, &Impl::onComment);
  // Parameter entities (and with them any external DTD) are never read.
  XML_SetParamEntityParsing(expat.parser, XML_PARAM_ENTITY_PARSING_NEVER);

  std::string_view rest = bytes_;
  XML_Status status = XML_STATUS_OK;
  do {
    constexpr size_t kChunk = size_t{1} << 30;  // XML_Parse takes an int length
    size_t length = rest.size() < kChunk ? rest.size() : kChunk;
    bool final = length == rest.size();
    status = XML_Parse(expat.parser, rest.data(), static_cast<int>(length), final ? 1 : 0);
    rest.remove_prefix(length);
  } while (status == XML_STATUS_OK && !rest.empty());

  if (status == XML_STATUS_OK) return true;
  RKVXMLParseError error;
  if (impl.depthExceeded) {
    error.code = RKVXMLParseError::kDepthLimitExceeded;
    error.description = "elements nested deeper than the limit of " + std::to_string(maximumDepth_);
  } else {
    XML_Error code = XML_GetErrorCode(expat.parser);
    error.code = code;
    const XML_LChar* text = XML_ErrorString(code);
    error.description = text ? text : "unknown error";
  }
  error.line = XML_GetCurrentLineNumber(expat.parser);
  error.column = XML_GetCurrentColumnNumber(expat.parser);
  error_ = error;
  delegate.parseErrorOccurred(error);
  return false;
}

}  // namespace rkv
