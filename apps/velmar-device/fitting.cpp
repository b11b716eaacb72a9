#include "fitting.h"

#include <velmarbizmodel/catalogue.h>

#include <algorithm>

namespace Velmar::Simulator {

using BizModel::Catalogue;
using BizModel::s_DeviceConfig;
using BizModel::s_SubCardBoard;
using BizModel::s_SubCardConfig;
using BizModel::s_SubCardModel;
using BizModel::s_UpgradeCfg;

namespace {

/*! The entry of \a models that \a text names or gives the id of, null if there is none. */
template<typename Model> const Model *findModel(const QList<Model> &models, const QString &text)
{
    bool isId = false;
    const uint id = text.toUInt(&isId, 0);
    const Model *byId = nullptr;
    for (const Model &model : models) {
        if (model.name == text)
            return &model;
        if (isId && model.modelId == id)
            byId = &model;
    }
    return byId;
}

template<typename Model> QString knownModels(const QList<Model> &models)
{
    QStringList texts;
    for (const Model &model : models)
        texts.append(QString::fromLatin1("%1 (0x%2)")
                         .arg(model.name)
                         .arg(model.modelId, 4, 16, QLatin1Char('0')));
    return texts.join(QLatin1String(", "));
}

const s_DeviceConfig *findDevice(const Catalogue &catalogue, const QString &model,
                                 QString &errorText)
{
    const QList<s_DeviceConfig> &models = catalogue.deviceModels();
    if (models.isEmpty()) {
        errorText = QString::fromLatin1("The catalogue describes no device.");
        return nullptr;
    }
    if (model.isEmpty())
        return &models.first();
    const s_DeviceConfig *found = findModel(models, model);
    if (found == nullptr)
        errorText = QString::fromLatin1("There is no device model \"%1\"; the catalogue has %2.")
                        .arg(model, knownModels(models));
    return found;
}

const s_SubCardBoard *findBoard(const s_SubCardModel &model, int boardId)
{
    const auto found =
        std::find_if(model.boards.begin(), model.boards.end(),
                     [boardId](const s_SubCardBoard &board) { return board.boardId == boardId; });
    return found == model.boards.end() ? nullptr : &*found;
}

/*! What a card option says: a slot, a model and, if it is told, a board. */
struct CardText {
    int slotId = 0;
    const s_SubCardModel *model = nullptr;
    int boardId = 0; // 0: not told
};

std::optional<CardText> parseCard(const Catalogue &catalogue, const QString &text,
                                  QString &errorText)
{
    CardText card;
    const int equals = text.indexOf(QLatin1Char('='));
    bool isSlot = false;
    card.slotId = text.left(equals).toInt(&isSlot);
    if (equals < 0 || !isSlot || card.slotId < 1 || card.slotId > 255) {
        errorText = QString::fromLatin1("The card \"%1\" is not told as SLOT=MODEL[:BOARD] with a "
                                        "slot from 1 to 255.")
                        .arg(text);
        return {};
    }
    const QString model = text.mid(equals + 1);
    card.model = findModel(catalogue.subCardModels(), model);
    const int colon = model.lastIndexOf(QLatin1Char(':'));
    if (card.model == nullptr && colon >= 0) { // the name itself may have a colon
        card.model = findModel(catalogue.subCardModels(), model.left(colon));
        bool isBoard = false;
        card.boardId = model.mid(colon + 1).toInt(&isBoard);
        if (!isBoard || card.boardId < 1 || card.boardId > 255) {
            errorText =
                QString::fromLatin1("The board of the card \"%1\" is not a number from 1 to "
                                    "255.")
                    .arg(text);
            return {};
        }
    }
    if (card.model == nullptr) {
        errorText = QString::fromLatin1("There is no card model \"%1\"; the catalogue has %2.")
                        .arg(model.left(colon), knownModels(catalogue.subCardModels()));
        return {};
    }
    if (card.boardId == 0)
        card.boardId = card.model->boards.first().boardId;
    if (findBoard(*card.model, card.boardId) == nullptr) {
        errorText = QString::fromLatin1("The card model \"%1\" has no board %2.")
                        .arg(card.model->name)
                        .arg(card.boardId);
        return {};
    }
    return card;
}

/*! How many slots of \a device take a card of \a modelId. */
int slotCount(const s_DeviceConfig &device, quint16 modelId)
{
    int count = 0;
    for (const s_SubCardConfig &config : device.subCardConfigs) {
        if (config.modelId == modelId)
            count += config.slotCount;
    }
    return count;
}

} // namespace

bool FittedPart::carries(quint16 code) const
{
    return std::any_of(sections.begin(), sections.end(),
                       [code](const FittedSection &section) { return section.code == code; });
}

Fitting::Fitting(const s_DeviceConfig &model)
    : m_model(model)
{
    addParts(0, model.modelId, model.name, model.upgradeCfgs);
    // The first kind of part is the main control; whatever else the model's own table lists sits on
    // the back plane.
    for (std::size_t i = 1; i < m_parts.size(); ++i)
        m_parts[i].modelId = model.backPlaneModelId;
}

std::optional<Fitting> Fitting::fromCards(const Catalogue &catalogue, const QString &model,
                                          const QStringList &cards, QString &errorText)
{
    const s_DeviceConfig *device = findDevice(catalogue, model, errorText);
    if (device == nullptr)
        return {};
    Fitting fitting(*device);
    std::vector<CardText> told;
    for (const QString &text : cards) {
        const std::optional<CardText> card = parseCard(catalogue, text, errorText);
        if (!card)
            return {};
        told.push_back(*card);
    }
    std::stable_sort(told.begin(), told.end(), [](const CardText &left, const CardText &right) {
        return left.slotId < right.slotId;
    });
    for (const CardText &card : told) {
        const quint16 modelId = card.model->modelId;
        const auto fitted =
            std::count_if(fitting.m_cards.begin(), fitting.m_cards.end(),
                          [modelId](const FittedCard &other) { return other.modelId == modelId; });
        if (fitting.boardInSlot(quint8(card.slotId))) {
            errorText = QString::fromLatin1("Slot %1 is told twice.").arg(card.slotId);
            return {};
        }
        if (fitted >= slotCount(*device, modelId)) {
            errorText = QString::fromLatin1("The device \"%1\" takes %2 cards of model \"%3\".")
                            .arg(device->name)
                            .arg(slotCount(*device, modelId))
                            .arg(card.model->name);
            return {};
        }
        fitting.addCard({ quint8(card.slotId), modelId, quint8(card.boardId) }, *card.model);
    }
    return fitting;
}

std::optional<Fitting> Fitting::fullyFitted(const Catalogue &catalogue, const QString &model,
                                            QString &errorText)
{
    const s_DeviceConfig *device = findDevice(catalogue, model, errorText);
    if (device == nullptr)
        return {};
    Fitting fitting(*device);
    int slotId = 1;
    for (const s_SubCardConfig &config : device->subCardConfigs) {
        for (const s_SubCardModel &card : catalogue.subCardModels()) {
            if (card.modelId != config.modelId)
                continue;
            const int count = std::min({ int(card.boards.size()), config.slotCount, 256 - slotId });
            for (int i = 0; i < count; ++i, ++slotId)
                fitting.addCard({ quint8(slotId), card.modelId, quint8(card.boards.at(i).boardId) },
                                card);
        }
    }
    return fitting;
}

std::optional<quint8> Fitting::boardInSlot(quint8 slotId) const
{
    if (slotId == 0)
        return quint8(0);
    const auto found =
        std::find_if(m_cards.begin(), m_cards.end(),
                     [slotId](const FittedCard &card) { return card.slotId == slotId; });
    return found == m_cards.end() ? std::nullopt : std::make_optional(found->boardId);
}

const FittedPart *Fitting::findPart(int type, quint8 slotId, quint16 code) const
{
    const FittedPart *otherKind = nullptr;
    for (const FittedPart &part : m_parts) {
        if (part.slotId != slotId || !part.carries(code))
            continue;
        if (part.type == type)
            return &part;
        if (otherKind == nullptr)
            otherKind = &part;
    }
    return otherKind;
}

std::optional<SectionKey> Fitting::fileVersionSection() const
{
    for (const FittedPart &part : m_parts) {
        for (const FittedSection &section : part.sections) {
            if (part.slotId == 0 && section.name == QLatin1String("fileVersion"))
                return part.key(section.code);
        }
    }
    return {};
}

void Fitting::addCard(const FittedCard &card, const s_SubCardModel &model)
{
    m_cards.push_back(card);
    addParts(card.slotId, card.modelId, model.name, findBoard(model, card.boardId)->upgradeCfgs);
}

void Fitting::addParts(quint8 slotId, quint16 modelId, const QString &name,
                       const QList<s_UpgradeCfg> &sections)
{
    const auto first = m_parts.size();
    for (const s_UpgradeCfg &section : sections) {
        const quint8 type = quint8(section.type & 0xFF); // the high byte is the vendor's own
        auto part = std::find_if(m_parts.begin() + std::ptrdiff_t(first), m_parts.end(),
                                 [type](const FittedPart &other) { return other.type == type; });
        if (part == m_parts.end()) {
            m_parts.push_back({ type, slotId, modelId, name, {} });
            part = m_parts.end() - 1;
        }
        part->sections.push_back({ section.name, section.upgradeCode });
    }
}

} // namespace Velmar::Simulator
