#include "ui/window/HeaderSection.h"

#include <QAbstractButton>
#include <QDialog>
#include <QDialogButtonBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QPainter>
#include <QPushButton>
#include <QScrollArea>
#include <QVBoxLayout>

#include "ui/StudioTheme.h"
#include "ui/window/Controls.h"

namespace velmora::window {

namespace {

// The round "?" of the header.
class HelpButton : public QAbstractButton {
public:
    explicit HelpButton(QWidget* parent) : QAbstractButton(parent) {
        setAccessibleName(QStringLiteral("Guide"));
        setToolTip(QStringLiteral("Guide d'utilisation"));
        setCursor(Qt::PointingHandCursor);
        setFocusPolicy(Qt::TabFocus);
        setFixedSize(26, 26);
    }

protected:
    void paintEvent(QPaintEvent*) override {
        QPainter p(this);
        p.setRenderHint(QPainter::Antialiasing);
        const QRectF r = QRectF(rect()).adjusted(1, 1, -1, -1);
        p.setPen(QPen(hasFocus() || underMouse() ? theme::accent : theme::panelBorder, 1.2));
        p.setBrush(underMouse() ? theme::knobBody : theme::panel);
        p.drawEllipse(r);
        QFont f = theme::bodyFont();
        f.setBold(true);
        f.setPixelSize(14);
        p.setFont(f);
        p.setPen(theme::textPrimary);
        p.drawText(r, Qt::AlignCenter, QStringLiteral("?"));
    }
    void enterEvent(QEnterEvent*) override { update(); }
    void leaveEvent(QEvent*) override { update(); }
};

const char* const guideText = R"(
<h2>Velmora en quelques gestes</h2>
<p><b>1. Déposez vos fichiers.</b> Glissez des fichiers audio ou vidéo (WAV, AIFF, MP3, M4A, FLAC,
MOV, MP4…) ou un dossier entier n'importe où sur la fenêtre, ou ouvrez-les avec Ctrl+O. Ils
sont analysés l'un après l'autre selon ITU-R BS.1770-4 et EBU R128 : sonie intégrée, plage de
sonie (LRA), maxima momentané et court terme, True Peak suréchantillonné 4×.</p>
<p><b>2. Choisissez la norme.</b> Le sélecteur de norme règle la cible de sonie, le plafond True
Peak, l'unité (LUFS ou LKFS) et la méthode d'analyse. Certaines normes imposent leur plafond :
il est alors verrouillé. Le diagnostic multi-norme montre d'un coup d'œil les normes que le
fichier respecte déjà sans aucune retouche, avec l'écart de sonie et de crête pour chacune.</p>
<p><b>3. Écoutez.</b> La barre d'espace lance et arrête la lecture, Début et Fin vont au début et
à la fin ; un clic sur la forme d'onde déplace la lecture, et un clic sur « M max », « S max » ou
« TRUE PEAK » place la lecture à l'endroit où ce maximum a été mesuré. Pendant la lecture, les
vumètres montrent la sonie à la tête de lecture. Avec le monitoring temps réel activé dans les
Réglages, l'interrupteur READY / LIVE et la barre d'espace font entendre le fichier à travers la
chaîne, sur la carte son et les sorties choisies : chaque réglage s'entend aussitôt.</p>
<p><b>4. Réglez le traitement.</b> En mode TRANCHE MASTER, la chaîne s'applique dans l'ordre :
Mid/Side, égaliseur 5 bandes, compresseur de bus, égaliseur tonal, réduction de plage (LRA),
puis le gain de conformité, la protection douce et le limiteur True Peak. Glissez les points des
courbes ou tournez les boutons ; un double-clic remet une valeur par défaut. En mode CONFORMITÉ
SEULE, le son n'est pas touché : seuls le gain vers la cible et le limiteur agissent.</p>
<p><b>5. Exportez.</b> EXPORTER (ou CONFORMER) traite tous les fichiers prêts de la session dans un
dossier, avec le rapport texte et le rapport PDF à côté de chaque master ; une vidéo ressort en
.mov avec son image intacte. « Enregistrer sous… » traite le seul fichier sélectionné. Le panneau
MULTI-MASTER écrit un master par norme cochée ; les ensembles de normes se sauvent en packs.</p>
<p><b>6. Les utilitaires.</b> Les presets gardent toute la chaîne sous un nom. Le bruit rose RLL
aligne vos enceintes, les extraits A/B comparent avant et après dans votre lecteur habituel, et la
vérification PAD contrôle un fichier selon la recommandation CST RT-040 de la télévision
française.</p>
<p>La langue des rapports et la sortie du monitoring se règlent dans le menu Réglages… (Ctrl+,).</p>
)";

}  // namespace

QDialog* makeGuideSheet(QWidget* parent) {
    auto* dialog = new QDialog(parent);
    dialog->setObjectName(QStringLiteral("guide"));
    dialog->setWindowTitle(QStringLiteral("Guide de Velmora"));
    dialog->setWindowModality(Qt::WindowModal);
    dialog->resize(640, 620);
    auto* layout = new QVBoxLayout(dialog);
    auto* scroll = new QScrollArea(dialog);
    scroll->setWidgetResizable(true);
    scroll->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    auto* text = new QLabel(QString::fromUtf8(guideText), scroll);
    text->setWordWrap(true);
    text->setTextFormat(Qt::RichText);
    text->setAlignment(Qt::AlignTop | Qt::AlignLeft);
    text->setContentsMargins(8, 0, 8, 8);
    QFont f = theme::bodyFont();
    f.setPixelSize(13);
    text->setFont(f);
    scroll->setWidget(text);
    layout->addWidget(scroll);
    auto* buttons = new QDialogButtonBox(dialog);
    QPushButton* close = makeButton(QStringLiteral("Fermer"), buttons);
    buttons->addButton(close, QDialogButtonBox::AcceptRole);
    QObject::connect(buttons, &QDialogButtonBox::accepted, dialog, &QDialog::accept);
    layout->addWidget(buttons);
    return dialog;
}

HeaderSection::HeaderSection(QWidget* parent) : QWidget(parent) {
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(6, 4, 6, 4);
    layout->setSpacing(2);
    auto* top = new QHBoxLayout;
    auto* logo = new QLabel(QStringLiteral("VELMORA"), this);
    QFont f = theme::bodyFont();
    f.setPixelSize(24);
    f.setWeight(QFont::Black);
    f.setLetterSpacing(QFont::AbsoluteSpacing, 4);
    logo->setFont(f);
    setTextColour(logo, theme::accent);
    logo->setAccessibleName(QStringLiteral("Velmora"));
    top->addWidget(logo);
    top->addStretch();
    help_ = new HelpButton(this);
    top->addWidget(help_);
    layout->addLayout(top);
    layout->addWidget(makeCaption(QStringLiteral("BS.1770-4 · R128 · True Peak 4×"), this));
    layout->addWidget(makeCaption(QStringLiteral("BROADCAST · MASTERING · TRUE PEAK"), this));
    connect(help_, &QAbstractButton::clicked, this, &HeaderSection::showGuide);
}

void HeaderSection::showGuide() {
    if (!guide_) guide_ = makeGuideSheet(window());
    guide_->show();
    guide_->raise();
}

}  // namespace velmora::window
