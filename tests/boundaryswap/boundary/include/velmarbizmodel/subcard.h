#ifndef TINY_VELMARBIZMODEL_SUBCARD_H
#define TINY_VELMARBIZMODEL_SUBCARD_H

namespace Velmar::BizModel {

class Subcard
{
public:
    unsigned int modelId() const;
};

} // namespace Velmar::BizModel

#endif // TINY_VELMARBIZMODEL_SUBCARD_H
