// Prints what messages are made of, as this library and as the MIME library see them: one JSON
// object per file and line. The comparison is differential.py's.
//
//   message_tree ours FILE...      message_tree library FILE...      message_tree tortures FOLDER
#include <gmime/gmime.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <set>
#include <string>
#include <string_view>

#include "host/message/header_block.h"
#include "host/message/message.h"
#include "tests/unit/host/message/support/torture.h"

namespace {

using host::message::Buffer;
using host::message::Entity;
using host::message::Message;
using nlohmann::json;

std::string hex(std::string_view bytes) {
  constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  for (const char c : bytes) {
    const auto byte = static_cast<unsigned char>(c);
    text += kDigits[byte >> 4];
    text += kDigits[byte & 15];
  }
  return text;
}

json node(int depth, const std::string& type, const std::string& kind, const std::string& content) {
  return {{"depth", depth}, {"type", type}, {"kind", kind}, {"content", hex(content)}};
}

/// Fields that say what an entity is.
std::size_t typeFields(const Entity& entity) {
  const auto& header = entity.header();
  std::size_t count = 0;
  for (std::size_t i = 0; i < header.size(); ++i) {
    if (header.at(i).hasName("content-type")) ++count;
  }
  return count;
}

json ours(const std::string& bytes) {
  const char* const kinds[] = {"", "leaf", "multipart", "message", "opaque"};
  const auto message = Message::parse(Buffer::copyOf(bytes));
  json nodes = json::array();
  int depth = 0;
  for (const Entity* entity = message->firstEntity(); entity != nullptr; entity = entity->next()) {
    depth = 0;
    for (const Entity* up = entity->parent(); up != nullptr; up = up->parent()) ++depth;
    json one = node(depth, entity->contentType(), kinds[static_cast<int>(entity->kind())],
                    entity->decodedContent());
    one["fields"] = entity->header().size();
    one["encoding"] = entity->transferEncoding();
    one["types"] = typeFields(*entity);
    nodes.push_back(one);
  }
  json defects = json::array();
  for (const auto& defect : message->defects()) defects.push_back(static_cast<int>(defect.kind));
  return {{"nodes", nodes}, {"defects", defects}};
}

std::string contentOf(GMimePart* part) {
  GMimeDataWrapper* wrapper = g_mime_part_get_content(part);
  if (wrapper == nullptr) return {};
  GMimeStream* stream = g_mime_stream_mem_new();
  g_mime_data_wrapper_write_to_stream(wrapper, stream);
  const GByteArray* bytes = g_mime_stream_mem_get_byte_array(GMIME_STREAM_MEM(stream));
  std::string content(reinterpret_cast<const char*>(bytes->data), bytes->len);
  g_object_unref(stream);
  return content;
}

void addNodes(GMimeObject* object, int depth, json& nodes) {
  if (object == nullptr) return;
  char* type = g_mime_content_type_get_mime_type(g_mime_object_get_content_type(object));
  char* lower = g_ascii_strdown(type, -1);
  const std::string name(lower);
  g_free(lower);
  g_free(type);
  if (GMIME_IS_MULTIPART(object)) {
    nodes.push_back(node(depth, name, "multipart", ""));
    const int count = g_mime_multipart_get_count(GMIME_MULTIPART(object));
    for (int i = 0; i < count; ++i) {
      addNodes(g_mime_multipart_get_part(GMIME_MULTIPART(object), i), depth + 1, nodes);
    }
  } else if (GMIME_IS_MESSAGE_PART(object)) {
    nodes.push_back(node(depth, name, "message", ""));
    GMimeMessage* inner = g_mime_message_part_get_message(GMIME_MESSAGE_PART(object));
    if (inner != nullptr) addNodes(g_mime_message_get_mime_part(inner), depth + 1, nodes);
  } else {
    nodes.push_back(node(depth, name, "leaf", contentOf(GMIME_PART(object))));
  }
}

json library(const std::string& bytes) {
  json nodes = json::array();
  GMimeStream* stream = g_mime_stream_mem_new_with_buffer(bytes.data(), bytes.size());
  GMimeParser* parser = g_mime_parser_new_with_stream(stream);
  GMimeMessage* message = g_mime_parser_construct_message(parser, nullptr);
  if (message != nullptr) {
    addNodes(g_mime_message_get_mime_part(message), 0, nodes);
    g_object_unref(message);
  }
  g_object_unref(parser);
  g_object_unref(stream);
  return {{"nodes", nodes}};
}

int writeTortures(const std::filesystem::path& folder) {
  std::set<std::string> seen;
  int number = 0;
  for (const auto& torture : message_test::smallTortures()) {
    if (!seen.insert(torture.bytes).second) continue;
    std::string name = std::to_string(1000 + number++) + "-" + torture.name + ".eml";
    for (char& c : name) c = c == ' ' || c == ',' ? '-' : c;
    std::ofstream(folder / name, std::ios::binary) << torture.bytes;
  }
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) return 2;
  g_mime_init();
  const std::string mode = argv[1];
  if (mode == "tortures") return writeTortures(argv[2]);
  for (int i = 2; i < argc; ++i) {
    std::ifstream file(argv[i], std::ios::binary);
    const std::string bytes(std::istreambuf_iterator<char>(file), {});
    json tree = mode == "ours" ? ours(bytes) : library(bytes);
    tree["file"] = argv[i];
    std::printf("%s\n", tree.dump(-1, ' ', true, json::error_handler_t::replace).c_str());
  }
  return 0;
}
