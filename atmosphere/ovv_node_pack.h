// ovv_node_pack: a package of nodes of another kind inside of a project, which is nobody's here.
#pragma once

#include "core/node.h"

/// Keeps its block of the project as it was read, elements, attributes and text, and writes it back.
class OvvNodePackInOvd : public trBase {
 public:
  void WriteXMLCustomData(trString indent, trString& out) override;
  void EnteredXMLCustomData() override;
  void HandleXMLCustomElement(const trString& name, const char** attributes) override;
  void HandleXMLCustomElementClosed(const trString& name) override;
  void HandleXMLCustomCharacterData(const trString& text) override;

 private:
  trString pack_;
  int depth_ = 0;
  bool isOpen_ = false;  ///< an element whose tag isn't closed yet: it may turn out empty
};
