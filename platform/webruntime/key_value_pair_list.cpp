#include "platform/webruntime/web_runtime.h"

struct KeyValuePairList::Node {
  std::string name;
  std::string value;
  KeyValuePair pair{};
};

KeyValuePairList::KeyValuePairList() = default;
KeyValuePairList::~KeyValuePairList() = default;

void KeyValuePairList::Add(const std::string& name, const std::string& value) {
  Node* previous = nodes_.empty() ? nullptr : &nodes_.back();
  Node& node = nodes_.emplace_back();
  node.name = name;
  node.value = value;
  node.pair = {node.name.c_str(), node.value.c_str(), nullptr};
  if (previous != nullptr) previous->pair.next = &node.pair;
}

void KeyValuePairList::Clear() { nodes_.clear(); }

const KeyValuePair* KeyValuePairList::First() const { return nodes_.empty() ? nullptr : &nodes_.front().pair; }

extern "C" const KeyValuePair* KeyValuePairList_GetFirst(const KeyValuePairList* list) {
  return list == nullptr ? nullptr : list->First();
}
