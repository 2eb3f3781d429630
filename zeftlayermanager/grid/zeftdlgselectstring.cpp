#include "zeftlayermanager/grid/zeftdlgselectstring.h"

#include <QDialogButtonBox>
#include <QGroupBox>
#include <QLabel>
#include <QListWidget>
#include <QPushButton>
#include <QVBoxLayout>

#include "suite/wybase.h"
#include "zeftlayermanager/res/zeftlayermanagerdialogs.h"
#include "zeftlayermanager/res/zeftlayermanagerresource.h"

ZEFTDlgSelectString::ZEFTDlgSelectString(const std::vector<std::wstring>& names,
                                         const std::vector<std::wstring>& helps, QWidget* parent)
    : QDialog(parent), names_(names), helps_(helps)
{
    ZEFT_GUARD_VOID("ZEFTDlgSelectString::ZEFTDlgSelectString", {
        setObjectName(zeftControlName(IDD_SELECT_STRING));
        const ZEFTDialogUnits du(this);
        auto* label = new QLabel(this);
        label->setObjectName(zeftControlName(IDC_STATIC_SELECT_LABEL));
        list_ = new QListWidget(this);
        list_->setObjectName(zeftControlName(IDC_LIST_SELECT_STRING));
        list_->setMinimumSize(du.controlSize(IDD_SELECT_STRING, IDC_LIST_SELECT_STRING));
        label->setBuddy(list_);
        auto* group = new QGroupBox(this);
        group->setObjectName(zeftControlName(IDC_GROUP_SELECT_HELP));
        help_ = new QLabel(group);
        help_->setObjectName(zeftControlName(IDC_STATIC_SELECT_HELP));
        help_->setWordWrap(true);
        help_->setAlignment(Qt::AlignLeft | Qt::AlignTop);
        help_->setMinimumHeight(du.y(zeftDialogControl(IDD_SELECT_STRING, IDC_STATIC_SELECT_HELP)->h));
        auto* groupLayout = new QVBoxLayout(group);
        groupLayout->addWidget(help_);
        auto* buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, this);
        buttons->button(QDialogButtonBox::Ok)->setObjectName(zeftControlName(IDC_BUTTON_OK));
        buttons->button(QDialogButtonBox::Cancel)->setObjectName(zeftControlName(IDC_BUTTON_CANCEL));
        connect(buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);
        connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
        auto* layout = new QVBoxLayout(this);
        layout->addWidget(label);
        layout->addWidget(list_, 1);
        layout->addWidget(group);
        layout->addWidget(buttons);
        setMinimumWidth(du.x(zeftDialogTemplate(IDD_SELECT_STRING)->width));
        connect(list_, &QListWidget::currentRowChanged, this, [this] { OnSelChangeList(); });
        connect(list_, &QListWidget::itemDoubleClicked, this, &QDialog::accept);
        OnInitDialog();
    });
}

void ZEFTDlgSelectString::OnInitDialog()
{
    ZEFT_GUARD_VOID("ZEFTDlgSelectString::OnInitDialog", {
        WyPrompts::setDialogAndControlText(this, IDD_SELECT_STRING, L"ZEFTLAYERMANAGER");
        for (std::size_t i = 0; i < names_.size(); ++i) {
            auto* item = new QListWidgetItem(QString::fromStdWString(names_[i]), list_);
            item->setData(Qt::UserRole, int(i));
        }
        if (list_->count() > 0) list_->setCurrentRow(0);
        list_->setFocus();
    });
}

void ZEFTDlgSelectString::OnSelChangeList()
{
    ZEFT_GUARD_VOID("ZEFTDlgSelectString::OnSelChangeList", {
        const int index = GetSelectedIndex();
        help_->setText(index >= 0 && std::size_t(index) < helps_.size()
                           ? QString::fromStdWString(helps_[std::size_t(index)])
                           : QString());
    });
}

int ZEFTDlgSelectString::GetSelectedIndex() const
{
    const QListWidgetItem* item = list_->currentItem();
    return item ? item->data(Qt::UserRole).toInt() : -1;
}

QString ZEFTDlgSelectString::GetSelectedString() const
{
    const int index = GetSelectedIndex();
    return index >= 0 ? QString::fromStdWString(names_[std::size_t(index)]) : QString();
}
