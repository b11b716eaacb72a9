#ifndef VELMARDEVICE_FITTING_H
#define VELMARDEVICE_FITTING_H

#include "devicerecord.h"

#include <velmarbizmodel/deviceconfig.h>

#include <QString>
#include <QStringList>

#include <optional>
#include <vector>

namespace Velmar::BizModel {
class Catalogue;
struct s_SubCardModel;
} // namespace Velmar::BizModel

namespace Velmar::Simulator {

/*! One sub-card in its slot. */
struct FittedCard {
    quint8 slotId = 0; //!< 1 to 255
    quint16 modelId = 0;
    quint8 boardId = 0;
};

/*! One section of firmware that a part carries. */
struct FittedSection {
    QString name;
    quint16 code = 0;
};

/*! One part of the device: the main control, the back plane or a card, with what it carries. */
struct FittedPart {
    quint8 type = 0; //!< kind of part, as in the section table of the model
    quint8 slotId = 0; //!< 0: the device itself
    quint32 modelId = 0;
    QString name; //!< of the model
    std::vector<FittedSection> sections;

    bool carries(quint16 code) const;
    SectionKey key(quint16 code) const { return { type, slotId, modelId, code }; }
};

/*! Which device this is: its model, the cards in its slots, and all parts that follow from them.
    Does not change while the device runs. */
class Fitting
{
public:
    /*!
        The device \a model (a name, or an id in decimal or with 0x) of \a catalogue; empty: the
        catalogue's first.

        Each of \a cards is "SLOT=MODEL" or "SLOT=MODEL:BOARD". Without a value, and with
        \a errorText set, if the catalogue has no such model, card or board, if a slot is taken
        twice, or if the device does not take such a card or so many of it.
    */
    static std::optional<Fitting> fromCards(const BizModel::Catalogue &catalogue,
                                            const QString &model, const QStringList &cards,
                                            QString &errorText);

    /*! As fromCards(), with one card of each board of each kind that the model takes, as far as
        there are slots for it, from slot 1. */
    static std::optional<Fitting> fullyFitted(const BizModel::Catalogue &catalogue,
                                              const QString &model, QString &errorText);

    const BizModel::s_DeviceConfig &model() const { return m_model; }
    const std::vector<FittedCard> &cards() const { return m_cards; } //!< by slot
    const std::vector<FittedPart> &parts() const { return m_parts; } //!< main control first

    /*! Board in \a slotId, 0 for the device itself; without a value if the slot is empty. */
    std::optional<quint8> boardInSlot(quint8 slotId) const;

    /*! The part in \a slotId that carries the section \a code, null if there is none. Parts of kind
        \a type come first: a host may order all sections of a slot under one kind. */
    const FittedPart *findPart(int type, quint8 slotId, quint16 code) const;

    /*! The device's own section "fileVersion", by which it tells the version that a host stamps the
        next image with; without a value if the model has none. */
    std::optional<SectionKey> fileVersionSection() const;

private:
    explicit Fitting(const BizModel::s_DeviceConfig &model);

    void addCard(const FittedCard &card, const BizModel::s_SubCardModel &model);
    void addParts(quint8 slotId, quint16 modelId, const QString &name,
                  const QList<BizModel::s_UpgradeCfg> &sections);

    BizModel::s_DeviceConfig m_model;
    std::vector<FittedCard> m_cards;
    std::vector<FittedPart> m_parts;
};

} // namespace Velmar::Simulator

#endif // VELMARDEVICE_FITTING_H
