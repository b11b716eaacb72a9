#ifndef VELMARBIZMODEL_CATALOGUEREADER_P_H
#define VELMARBIZMODEL_CATALOGUEREADER_P_H

#include <jsontext/jsontext.h>
#include <velmarbizmodel/catalogue.h>

#include <QHash>
#include <QJsonValue>
#include <QLatin1String>
#include <QSet>

#include <functional>
#include <initializer_list>

namespace Velmar::BizModel::Internal {

/*!
    Reads one catalogue text, strictly: every key has to be there, no other may be, and each value
    has to be of its type and range.
*/
class CatalogueReader
{
public:
    /*! \a source stands for the file in the error text. */
    CatalogueReader(const QByteArray &json, const QString &source);

    /*! True if the text is a catalogue. Otherwise errorText is set and what has been read of the
        models is of no use. */
    bool read();

    QList<s_DeviceConfig> deviceModels;
    QList<s_SubCardModel> subCardModels;
    QString errorText;

private:
    // A value and its way in the document, by which a fault finds its line.
    struct Node {
        QJsonValue value;
        JsonPath path;

        Node member(QLatin1String key) const;
    };
    // What has to be unique, in words, and where it stands.
    using Claims = QHash<QString, JsonPath>;

    bool readCatalogue(const Node &node);
    bool readDeviceModel(const Node &node);
    bool readCommandTimeout(const Node &node, Claims &claims, s_DeviceConfig &config);
    bool readSubCardSlots(const Node &node, Claims &claims, s_DeviceConfig &config);
    bool readSubCardModel(const Node &node);
    bool readBoard(const Node &node, Claims &claims, s_SubCardModel &model);
    bool readSections(const Node &node, QList<s_UpgradeCfg> &sections);
    bool readSection(const Node &node, Claims &claims, QList<s_UpgradeCfg> &sections);

    // Each answers whether the value is as told; if not, the error text says so.
    bool isObject(const Node &node, std::initializer_list<QLatin1String> keys);
    bool readList(const Node &node, const std::function<bool(const Node &)> &readEntry);
    bool readText(const Node &node, QString &text);
    bool readNumber(const Node &node, int minimum, int maximum, int &number);
    bool readHex(const Node &node, unsigned short minimum, unsigned short &number);
    bool claim(Claims &claims, const QString &what, const Node &node);

    bool fail(const JsonPath &path, const QString &fault);
    bool failAtLine(int line, const QString &fault);

    const QByteArray m_json;
    const JsonText m_text;
    const QString m_source;
    Claims m_modelClaims; // ids and names, of device models and sub-card models together
    QSet<unsigned short> m_subCardModelIds;
};

} // namespace Velmar::BizModel::Internal

#endif // VELMARBIZMODEL_CATALOGUEREADER_P_H
