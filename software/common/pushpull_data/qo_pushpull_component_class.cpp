// Which class a component belongs to.
#include "qo_pushpull.h"
#include "qo_pushpull_conventions.h"

eQO_COMPONENT_CLASS_ PushPullData::get_comp_class(eQO_CMP_IDs_ comp_id) { return qo_component_class(comp_id); }
