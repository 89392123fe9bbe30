import QtQuick
import QtQuick.Controls.Basic
import QtQuick.Dialogs
import QtQuick.Layouts
import com.im.whiteboard 1.0
import com.im.whiteboard.relay 1.0

// One participant's board: who the user is, the tools, the board itself with
// its text input and overview, and the board's actions.
Rectangle {
    id: board

    // The relay this board joins, e.g. ws://127.0.0.1:8765.
    required property url relayUrl
    required property int accountId
    required property string userName
    // Whether the user owns the board before the relay says: the relay's
    // answer to the join names the owner, and that holds from then on.
    required property bool isOwner
    readonly property bool owner: connection.ownerId > 0 ? connection.ownerId === accountId : isOwner
    required property string boardId
    required property string exportFolder
    property color accent: "#1f6feb"
    readonly property alias view: view
    readonly property alias connection: connection

    signal notify(string message)

    radius: 10
    color: "#ffffff"
    border.color: "#d0d7de"

    readonly property var tools: [
        { label: "Select", tool: GraphicDefine.Selector, tip: "Select, move and resize items (space + drag pans)" },
        { label: "Pen", tool: GraphicDefine.Pen, tip: "Freehand stroke" },
        { label: "Line", tool: GraphicDefine.Line, tip: "Straight line" },
        { label: "Arrow", tool: GraphicDefine.ArrowLine, tip: "Line with an arrow head" },
        { label: "Polyline", tool: GraphicDefine.Segment, tip: "Click point after point, double click to finish" },
        { label: "Rect", tool: GraphicDefine.Rectangle, tip: "Rectangle" },
        { label: "Ellipse", tool: GraphicDefine.Ellipse, tip: "Ellipse" },
        { label: "Text", tool: GraphicDefine.Text, tip: "Click to type a text" },
        { label: "Image…", tool: GraphicDefine.Image, tip: "Choose a picture, then click where it goes (or drag its frame)" },
        { label: "Eraser", tool: GraphicDefine.Eraser, tip: "Drag across items to erase them" }
    ]

    ColumnLayout {
        anchors.fill: parent
        anchors.margins: 12
        spacing: 10

        // Who is drawing here.
        RowLayout {
            Layout.fillWidth: true
            spacing: 10

            Rectangle {
                width: 34
                height: 34
                radius: 17
                color: board.accent
                Text {
                    anchors.centerIn: parent
                    text: board.userName.charAt(0)
                    color: "#ffffff"
                    font.pixelSize: 17
                    font.bold: true
                }
            }
            ColumnLayout {
                Layout.fillWidth: true
                spacing: 0
                Text {
                    text: board.userName
                    font.pixelSize: 16
                    font.bold: true
                    color: "#1f2328"
                }
                Text {
                    text: "account " + board.accountId + (board.owner ? " · owner" : " · participant")
                          + " · board “" + board.boardId + "” · " + board.statusText
                    Layout.fillWidth: true
                    elide: Text.ElideRight
                    font.pixelSize: 12
                    color: "#656d76"
                }
            }

            // Overview of the whole page, kept up to date by the scene.
            Column {
                spacing: 2
                Text {
                    text: "overview"
                    font.pixelSize: 10
                    color: "#656d76"
                }
                Rectangle {
                    width: thumbnail.width + 2
                    height: thumbnail.height + 2
                    color: "#ffffff"
                    border.color: "#d0d7de"
                    ThumbnailImage {
                        id: thumbnail
                        x: 1
                        y: 1
                        // The page is 3:2; the small thumbnail is stretched to it.
                        width: 96
                        height: 64
                    }
                }
            }
        }

        // Tools.
        Flow {
            Layout.fillWidth: true
            spacing: 4

            Repeater {
                model: board.tools
                DemoButton {
                    required property var modelData
                    text: modelData.label
                    tip: modelData.tip
                    accent: board.accent
                    checkable: true
                    checked: view.toolType === modelData.tool
                    onClicked: {
                        if (modelData.tool === GraphicDefine.Image)
                            imageDialog.open()
                        else
                            view.toolType = modelData.tool
                        // A click must not untoggle the current tool.
                        checked = Qt.binding(function() { return view.toolType === modelData.tool })
                    }
                }
            }
        }

        // The board.
        Rectangle {
            id: frame
            Layout.fillWidth: true
            Layout.fillHeight: true
            color: "#dfe4ea"
            border.color: view.activeFocus ? board.accent : "#d0d7de"
            border.width: view.activeFocus ? 2 : 1
            clip: true

            WhiteboardView {
                id: view
                anchors.fill: parent
                anchors.margins: 2
                currentAccountId: board.accountId
                userName: board.userName
                isOwner: board.owner
                textInputer: inputer
                // A resized board shows the whole page again.
                onWidthChanged: Qt.callLater(board.fitPage)
                onHeightChanged: Qt.callLater(board.fitPage)
                onPictureRefused: (path, reason) => refusal.text = "Picture not placed: " + reason

                // The text input the board edits texts in: hidden until the
                // board places it over a text and shows it.
                TextEdit {
                    id: inputer
                    visible: false
                    textFormat: TextEdit.PlainText
                    wrapMode: TextEdit.NoWrap
                    font.pixelSize: 20
                    color: GraphicPalette.strokeColor
                    selectByMouse: true
                    selectionColor: Qt.lighter(board.accent, 1.6)

                    Rectangle {
                        anchors.fill: parent
                        anchors.margins: -3
                        z: -1
                        color: "#ccffffff"
                        border.color: board.accent
                        border.width: 1
                        radius: 3
                    }
                }
            }

            // Why the last picture could not be placed, until the next one is.
            Text {
                id: refusal
                anchors.left: parent.left
                anchors.bottom: parent.bottom
                anchors.margins: 8
                visible: text !== ""
                color: "#cf222e"
                font.pixelSize: 12
                Connections { target: view.scene; function onImagePathChanged() { refusal.text = "" } }
            }

            // The board's id is a property named "id", which QML syntax keeps
            // for object ids: set it by name.
            Binding {
                target: view
                property: "id"
                value: board.boardId
            }

            // The page is transparent until it is given a colour; exports get
            // it too.
            Binding {
                target: view.scene
                property: "backgroundColor"
                value: "#ffffff"
            }
        }

        // Actions of this board.
        RowLayout {
            Layout.fillWidth: true
            spacing: 4

            DemoButton {
                text: "Fill"
                tip: "Fill new rectangles and ellipses"
                accent: board.accent
                checkable: true
                checked: view.scene.fillShape
                onToggled: view.scene.fillShape = checked
            }
            Item { width: 8 }
            DemoButton {
                text: "Undo"
                enabled: view.canUndo
                onClicked: view.scene.undo()
            }
            DemoButton {
                text: "Redo"
                enabled: view.canRedo
                onClicked: view.scene.redo()
            }
            Item { width: 8 }
            DemoButton {
                text: "−"
                tip: "Zoom out"
                onClicked: view.scaleSceneToCenter(view.scene.scale / 1.25)
            }
            DemoButton {
                implicitWidth: 58
                text: Math.round(view.scene.scale * 100) + " %"
                tip: "Back to 100 %"
                onClicked: view.scaleSceneToCenter(1.0)
            }
            DemoButton {
                text: "Fit"
                tip: "Show the whole page"
                onClicked: board.fitPage()
            }
            DemoButton {
                text: "+"
                tip: "Zoom in"
                onClicked: view.scaleSceneToCenter(view.scene.scale * 1.25)
            }
            Item { Layout.fillWidth: true }
            DemoButton {
                id: exportButton
                text: "Export ▴"
                tip: exportMenu.visible ? "" : "Save the page in " + board.exportFolder
                onClicked: exportMenu.open()

                // The form without a scale writes the overview's picture at
                // once; the others paint off the GUI thread, and the view
                // tells the end through sceneExported.
                function exportAs(suffix, scale) {
                    const file = board.exportFolder + "/whiteboard-" + board.userName.toLowerCase() + "-"
                               + Qt.formatDateTime(new Date(), "yyyyMMdd-hhmmss") + "." + suffix
                    const started = suffix === "png" && scale === 1 && !cropItem.checked
                                  ? view.exportScene(file) : view.exportScene(file, scale, cropItem.checked)
                    if (!started)
                        board.notify(board.userName + ": export to " + file + " refused (see the log)")
                }

                Connections {
                    target: view
                    function onSceneExported(path, ok) {
                        board.notify(board.userName + (ok ? ": page exported to " : ": export failed: ") + path)
                    }
                }

                Menu {
                    id: exportMenu
                    // The bar is at the bottom of the board: the menu opens upwards.
                    y: -height
                    MenuItem { id: cropItem; text: "Only the items"; checkable: true }
                    MenuSeparator {}
                    MenuItem { text: "PNG"; onTriggered: exportButton.exportAs("png", 1) }
                    MenuItem { text: "PNG, 2x"; onTriggered: exportButton.exportAs("png", 2) }
                    MenuItem { text: "JPEG, 2x"; onTriggered: exportButton.exportAs("jpg", 2) }
                    MenuItem { text: "WebP, 2x"; onTriggered: exportButton.exportAs("webp", 2) }
                    MenuItem { text: "SVG (vector)"; onTriggered: exportButton.exportAs("svg", 1) }
                    MenuItem { text: "PDF (vector)"; onTriggered: exportButton.exportAs("pdf", 1) }
                }
            }
            // Only the owner may clear the board; the others clear their own items.
            DemoButton {
                text: board.owner ? "Clear" : "Clear mine"
                tip: board.owner ? "Remove every item of the board" : "Remove the items you drew"
                onClicked: board.owner ? view.scene.clearAll() : view.scene.clearByUid(board.accountId)
            }
        }
    }

    FileDialog {
        id: imageDialog
        title: board.userName + ": choose a picture"
        nameFilters: ["Images (*.png *.jpg *.jpeg *.bmp *.gif *.svg)", "All files (*)"]
        onAccepted: {
            view.scene.imagePath = selectedFile
            view.toolType = GraphicDefine.Image
            view.forceActiveFocus()
        }
    }

    // The scene renders its thumbnails on its own thread; the handler runs on
    // the GUI thread and hands the image to the overview.
    Connections {
        target: view.scene
        function onSmallThumbnailChanged(image) { thumbnail.updateImage(image) }
    }

    // Shows the whole page: the scale at which it fits the board.
    function fitPage() {
        const page = view.scene.sceneSize
        if (view.width > 0 && view.height > 0 && page.width > 0 && page.height > 0)
            view.scaleSceneToCenter(Math.min(view.width / page.width, view.height / page.height) * 0.96)
    }

    RelayConnection {
        id: connection
        url: board.relayUrl
        boardId: board.boardId
        accountId: board.accountId
        userName: board.userName
        active: true
    }

    readonly property string statusText: ["offline", "connecting", "loading", "online", "refused by the relay"][connection.status]
        + (connection.pendingCount > 0 ? " · " + connection.pendingCount + " waiting" : "")
        + (connection.status !== RelayConnection.Online && connection.errorString !== "" ? " · " + connection.errorString : "")

    Component.onCompleted: {
        Qt.callLater(fitPage)
        // The connection announces the board's join on each connect.
        connection.attach(view)
    }
}
