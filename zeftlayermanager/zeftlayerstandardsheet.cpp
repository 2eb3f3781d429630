#include "zeftlayermanager/zeftlayerstandardsheet.h"

#include <QDialogButtonBox>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QPainter>
#include <QPainterPath>
#include <QPushButton>
#include <QTabWidget>
#include <QVBoxLayout>

#include "host/document.h"
#include "suite/wybase.h"
#include "suite/zefttools.h"
#include "zeftlayermanager/layerstandarddata.h"
#include "zeftlayermanager/res/zeftlayermanagerdialogs.h"
#include "zeftlayermanager/res/zeftlayermanagerresource.h"
#include "zeftlayermanager/zeftlayerenumspage.h"
#include "zeftlayermanager/zeftlayerexceptionspage.h"
#include "zeftlayermanager/zeftlayerfunctionspage.h"
#include "zeftlayermanager/zeftlayermanagerutil.h"
#include "zeftlayermanager/zeftlayerrule.h"
#include "zeftlayermanager/zeftlayerstandard.h"
#include "zeftlayermanager/zeftlayerstandardpage.h"

namespace {

constexpr int kPictureSide = 30;

// The module's picture: three stacked layer sheets.
QPixmap layersPicture(int side, qreal ratio, const QPalette& palette)
{
    QPixmap pixmap(QSize(side, side) * ratio);
    pixmap.setDevicePixelRatio(ratio);
    pixmap.fill(Qt::transparent);
    QPainter painter(&pixmap);
    painter.setRenderHint(QPainter::Antialiasing);
    const QColor fills[] = {QColor(0x3b, 0x6e, 0xa5), QColor(0x5f, 0x9e, 0xd6), QColor(0xa8, 0xd0, 0xf0)};
    const qreal s = side;
    for (int i = 0; i < 3; ++i) {
        const qreal top = s * (0.42 - 0.16 * i);
        QPainterPath sheet;
        sheet.moveTo(s * 0.5, top);
        sheet.lineTo(s * 0.95, top + s * 0.17);
        sheet.lineTo(s * 0.5, top + s * 0.34);
        sheet.lineTo(s * 0.05, top + s * 0.17);
        sheet.closeSubpath();
        painter.setPen(QPen(palette.color(QPalette::WindowText), 1));
        painter.setBrush(fills[i]);
        painter.drawPath(sheet);
    }
    return pixmap;
}

}  // namespace

ZEFTLayerStandardSheet::ZEFTLayerStandardSheet(const QString& caption, QWidget* parent, int selectPage)
    : QDialog(parent)
{
    construct(caption, selectPage);
}

ZEFTLayerStandardSheet::ZEFTLayerStandardSheet(unsigned captionId, QWidget* parent, int selectPage) : QDialog(parent)
{
    construct(QString::fromStdWString(WyPrompts::getPrompt(L"ZEFTLAYERMANAGER", int(captionId))), selectPage);
}

ZEFTLayerStandardSheet::~ZEFTLayerStandardSheet()
{
    // The pages go before the copy they point to.
    delete m_tabs;
}

void ZEFTLayerStandardSheet::construct(const QString& caption, int selectPage)
{
    ZEFT_GUARD_VOID("ZEFTLayerStandardSheet::construct", {
        setObjectName(QStringLiteral("ZEFTLayerStandardSheet"));
        setWindowTitle(caption);
        setWindowFlag(Qt::WindowContextHelpButtonHint, true);
        m_tabs = new QTabWidget(this);
        InitData();
        AddControlPages();

        m_ok = new QPushButton(this);
        m_ok->setObjectName(zeftControlName(IDC_BUTTON_OK));
        m_ok->setDefault(true);
        m_cancel = new QPushButton(this);
        m_cancel->setObjectName(zeftControlName(IDC_BUTTON_CANCEL));
        m_help = new QPushButton(this);
        m_help->setObjectName(zeftControlName(IDC_BUTTON_HELP));
        auto* buttons = new QHBoxLayout;
        buttons->addSpacing(10 + kPictureSide);
        buttons->addStretch(1);
        for (QPushButton* b : {m_ok, m_cancel, m_help}) buttons->addWidget(b);
        auto* layout = new QVBoxLayout(this);
        layout->addWidget(m_tabs, 1);
        layout->addLayout(buttons);
        connect(m_ok, &QPushButton::clicked, this, [this] { OnOK(); });
        connect(m_cancel, &QPushButton::clicked, this, &QDialog::reject);
        connect(m_help, &QPushButton::clicked, this, [this] { OnHelpButton(); });

        OnInitDialog();
        if (selectPage < 0 || selectPage >= m_tabs->count()) selectPage = 0;
        m_tabs->setCurrentIndex(selectPage);
        m_activePage = selectPage;
        connect(m_tabs, &QTabWidget::currentChanged, this, [this](int index) {
            if (m_activePage >= 0 && std::size_t(m_activePage) < m_pages.size()) m_pages[std::size_t(m_activePage)]->OnKillActive();
            m_activePage = index;
        });
    });
}

void ZEFTLayerStandardSheet::InitData()
{
    ZEFT_GUARD_VOID("ZEFTLayerStandardSheet::InitData", {
        AcDbDatabase* db = acdbWorkingDatabase();
        const AcDbObjectId standardId = ZEFTLayerManagerUtil::getStandardFromDictionary(db);
        if (standardId.isValid()) {
            AcDbObjectPointer<ZEFTLayerStandard> standard(standardId, AcDb::kForRead);
            if (standard) {
                m_data.name = standard->getName();
                m_data.fileName = standard->getFileName();
                m_data.separator = standard->getSeparator();
            }
        }
        ZEFTLayerManagerUtil::getCloneFunctions(db, m_data.functions);
        ZEFTLayerManagerUtil::getCloneEnums(db, m_data.enums);
        ZEFTLayerManagerUtil::getCloneException(db, m_data.exception);
        const std::pair<AcDbObjectId, std::vector<RuleField>*> rules[] = {
            {ZEFTLayerManagerUtil::getModelRuleFromDictionary(db), &m_data.modelRule},
            {ZEFTLayerManagerUtil::getDraftRuleFromDictionary(db), &m_data.draftRule},
            {ZEFTLayerManagerUtil::getDocRuleFromDictionary(db), &m_data.docRule}};
        for (const auto& [id, fields] : rules) {
            if (!id.isValid()) continue;
            AcDbObjectPointer<ZEFTLayerRule> rule(id, AcDb::kForRead);
            if (rule) rule->getFields(*fields);
        }
        ZEFTRxClassInfo::GetEntitiesClassInfo(m_data.entityClasses);
    });
}

void ZEFTLayerStandardSheet::AddPage(ZEFTPropertyPage* page)
{
    m_pages.push_back(page);
    m_tabs->addTab(page, QString());
}

void ZEFTLayerStandardSheet::AddControlPages()
{
    ZEFT_GUARD_VOID("ZEFTLayerStandardSheet::AddControlPages", {
        CWyToolsResOverride resources;
        AddPage(m_pStandardPage = new ZEFTLayerStandardPage(&m_data));
        AddPage(m_pEnumsPage = new ZEFTLayerEnumsPage(&m_data));
        AddPage(m_pFunctionsPage = new ZEFTLayerFunctionsPage(&m_data));
        AddPage(m_pExceptionsPage = new ZEFTLayerExceptionsPage(&m_data));
    });
}

bool ZEFTLayerStandardSheet::OnInitDialog()
{
    ZEFT_GUARD("ZEFTLayerStandardSheet::OnInitDialog", true, {
        setWindowIcon(QIcon(layersPicture(16, devicePixelRatioF(), palette())));
        for (ZEFTPropertyPage* page : m_pages) page->OnInitDialog();
        // The tabs are titled by their pages' templates.
        for (int i = 0; i < m_tabs->count(); ++i) m_tabs->setTabText(i, m_tabs->widget(i)->windowTitle());
        m_ok->setText(QString::fromStdWString(zeftDisplayText(WyPrompts::getPrompt(L"ZEFTLAYERMANAGER", 17721))));
        m_ok->setMinimumWidth(m_ok->sizeHint().width() + 50);
        m_cancel->setText(QString::fromStdWString(WyPrompts::getPrompt(L"ZEFTLAYERMANAGER", 17702)));
        m_help->setText(QString::fromStdWString(WyPrompts::getPrompt(L"ZEFTLAYERMANAGER", 17703)));
        return true;
    });
}

void ZEFTLayerStandardSheet::OnOK()
{
    ZEFT_GUARD_VOID("ZEFTLayerStandardSheet::OnOK", {
        if (m_activePage >= 0 && std::size_t(m_activePage) < m_pages.size()) m_pages[std::size_t(m_activePage)]->OnKillActive();
        if (!m_pStandardPage->OnApply()) return;
        accept();
    });
}

void ZEFTLayerStandardSheet::OnHelpButton()
{
    ZEFT_GUARD_VOID("ZEFTLayerStandardSheet::OnHelpButton", { ZEFTHelpTools::Help(1, IDD_LAYER_STANDARD_PAGE); });
}

void ZEFTLayerStandardSheet::paintEvent(QPaintEvent* event)
{
    QDialog::paintEvent(event);
    ZEFT_GUARD_VOID("ZEFTLayerStandardSheet::OnPaint", {
        QPainter painter(this);
        // Beside the buttons, at the bottom left.
        const QRect square(10, m_ok->geometry().center().y() - kPictureSide / 2, kPictureSide, kPictureSide);
        painter.fillRect(square, palette().color(QPalette::Button));
        painter.drawPixmap(square.topLeft(), layersPicture(kPictureSide, devicePixelRatioF(), palette()));
    });
}

void ZEFTLayerStandardSheet::keyPressEvent(QKeyEvent* event)
{
    if (event->key() == Qt::Key_F1 && OnHelpInfo()) return event->accept();
    QDialog::keyPressEvent(event);
}
