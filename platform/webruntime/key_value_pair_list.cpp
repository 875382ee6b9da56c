#include "platform/webruntime/web_runtime.h"

struct KeyValuePairList::Node {
  std::string name;
  std::string value;
  KeyValuePair pair{};
};

KeyValuePairList::KeyValuePairList() = default;
KeyValuePairList::~KeyValuePairList() = default;

void KeyValuePairList::Add(const std::string& name, const std::string& value) {
  auto node = std::make_unique<Node>();
  node->name = name;
  node->value = value;
  node->pair = {node->name.c_str(), node->value.c_str(), nullptr};
  if (!nodes_.empty()) nodes_.back()->pair.next = &node->pair;
  nodes_.push_back(std::move(node));
}

void KeyValuePairList::Clear() { nodes_.clear(); }

const KeyValuePair* KeyValuePairList::First() const {
  return nodes_.empty() ? nullptr : &nodes_.front()->pair;
}

extern "C" const KeyValuePair* KeyValuePairList_GetFirst(const KeyValuePairList* list) {
  return list == nullptr ? nullptr : list->First();
}
