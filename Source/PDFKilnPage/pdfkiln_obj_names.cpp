#include "pdfkiln_obj_names.h"

namespace PDF_KILN {

const char* const kwstream = "stream";
const char* const kwendstream = "endstream";
const char* const kwobj = "obj";
const char* const kwendobj = "endobj";
const char* const kwxref = "xref";
const char* const kwtrailer = "trailer";
const char* const kwstartxref = "startxref";
const char* const kwR = "R";
const char* const kwf = "f";
const char* const kwn = "n";
const char* const kw_EOF = "%%EOF";
const char* const kw_EOF_ = "%%EOF.";
const char* const kw_PDF_ = "%PDF-";
const char* const kw_r_n = "\r\n";
const char* const kw_n = "\n";
const char* const kw_ = " ";

const char* const nmSD = "/SD";
const char* const nmPg = "/Pg";
const char* const nmK = "/K";
const char* const nmGoToDp = "/GoToDp";
const char* const nmDp = "/Dp";
const char* const nmEnd = "/End";
const char* const nmStart = "/Start";
const char* const nmDParts = "/DParts";
const char* const nmDPartRootNode = "/DPartRootNode";
const char* const nmDPartRoot = "/DPartRoot";
const char* const nmBaseState = "/BaseState";
const char* const nmON = "/ON";
const char* const nmOFF = "/OFF";
const char* const nmOrder = "/Order";
const char* const nmOCGs = "/OCGs";
const char* const nmOCProperties = "/OCProperties";
const char* const nmTf = "/Tf";
const char* const nmIllustrator = "/Illustrator";
const char* const nmPrivate = "/Private";
const char* const nmColorSpace = "/ColorSpace";
const char* const nmBitsPerComponent = "/BitsPerComponent";
const char* const nmHeight = "/Height";
const char* const nmWidth = "/Width";
const char* const nmImage = "/Image";
const char* const nmXObject = "/XObject";
const char* const nmDCT = "/DCT";
const char* const nmCCF = "/CCF";
const char* const nmRL = "/RL";
const char* const nmA85 = "/A85";
const char* const nmAHx = "/AHx";
const char* const nmLZW = "/LZW";
const char* const nmFl = "/Fl";
const char* const nmDCTDecode = "/DCTDecode";
const char* const nmCCITTFaxDecode = "/CCITTFaxDecode";
const char* const nmRunLengthDecode = "/RunLengthDecode";
const char* const nmASCII85Decode = "/ASCII85Decode";
const char* const nmASCIIHexDecode = "/ASCIIHexDecod";
const char* const nmLZWDecode = "/LZWDecode";
const char* const nmFlateDecode = "/FlateDecode";
const char* const nmH = "/H";
const char* const nmDS = "/DS";
const char* const nmRC = "/RC";
const char* const nmTU = "/TU";
const char* const nmDV = "/DV";
const char* const nmMaxLen = "/MaxLen";
const char* const nmTx = "/Tx";
const char* const nmT = "/T";
const char* const nmFf = "/Ff";
const char* const nmFT = "/FT";
const char* const nmQ = "/Q";
const char* const nmDA = "/DA";
const char* const nmDR = "/DR";
const char* const nmCO = "/CO";
const char* const nmSigFlags = "/SigFlags";
const char* const nmNeedAppearances = "/NeedAppearances";
const char* const nmFields = "/Fields";
const char* const nmI = "/I";
const char* const nmGlitter = "/Glitter";
const char* const nmDissolve = "/Dissolve";
const char* const nmWipe = "/Wipe";
const char* const nmBox = "/Box";
const char* const nmBlinds = "/Blinds";
const char* const nmSplit = "/Split";
const char* const nmS = "/S";
const char* const nmM = "/M";
const char* const nmDm = "/Dm";
const char* const nmDi = "/Di";
const char* const nmD = "/D";
const char* const nmR2L = "/R2L";
const char* const nmL2R = "/L2R";
const char* const nmTwoColumnRight = "/TwoColumnRight";
const char* const nmTwoColumnLeft = "/TwoColumnLeft";
const char* const nmOneColumn = "/OneColumn";
const char* const nmFullScreen = "/FullScreen";
const char* const nmUseThumbs = "/UseThumbs";
const char* const nmUseOutlines = "/UseOutlines";
const char* const nmUseNone = "/UseNone";
const char* const nmPrintClip = "/PrintClip";
const char* const nmPrintArea = "/PrintArea";
const char* const nmViewClip = "/ViewClip";
const char* const nmViewArea = "/ViewArea";
const char* const nmDirection = "/Direction";
const char* const nmNonFullScreenPageMode = "/NonFullScreenPageMode";
const char* const nmDisplayDocTitle = "/DisplayDocTitle";
const char* const nmCenterWindow = "/CenterWindow";
const char* const nmFitWindow = "/FitWindow";
const char* const nmHideWindowUI = "/HideWindowUI";
const char* const nmHideMenubar = "/HideMenubar";
const char* const nmHideToolbar = "/HideToolbar";
const char* const nmAdbepkcs7s5 = "/adbe.pkcs7.s5";
const char* const nmAdbepkcs7s4 = "/adbe.pkcs7.s4";
const char* const nmAdbepkcs7s3 = "/adbe.pkcs7.s3";
const char* const nmStdCF = "/StdCF";
const char* const nmCF = "/CF";
const char* const nmV = "/V";
const char* const nmUE = "/UE";
const char* const nmU = "/U";
const char* const nmR = "/R";
const char* const nmPerms = "/Perms";
const char* const nmP = "/P";
const char* const nmOE = "/OE";
const char* const nmO = "/O";
const char* const nmPubSec = "/Adobe.PubSec";
const char* const nmPPKLite = "/Adobe.PPKLite";
const char* const nmPPKEF = "/Entrust.PPKEF";
const char* const nmStandard = "/Standard";
const char* const nmN = "/N";
const char* const nmFirst = "/First";
const char* const nmObjStm = "/ObjStm";
const char* const nmSubFilter = "/SubFilter";
const char* const nmFilter = "/Filter";
const char* const nmFFilter = "/FFilter";
const char* const nmFDecodeParms = "/FDecodeParms";
const char* const nmF = "/F";
const char* const nmLength = "/Length";
const char* const nmWidget = "/Widget";
const char* const nmRichMedia = "/RichMedia";
const char* const nm3D = "/3D";
const char* const nmWaterMark = "/WaterMark";
const char* const nmTrapNet = "/TrapNet";
const char* const nmPrinterMark = "/PrinterMark";
const char* const nmScreen = "/Screen";
const char* const nmCaret = "/Caret";
const char* const nmPolygon = "/Polygon";
const char* const nmPolyLine = "/PolyLine";
const char* const nmSquiggly = "/Squiggly";
const char* const nmPopup = "/Popup";
const char* const nmFreeText = "/FreeText";
const char* const nmFileAttachment = "/FileAttachment";
const char* const nmInk = "/Ink";
const char* const nmUnderline = "/Underline";
const char* const nmHighlight = "/Highlight";
const char* const nmStrikeOut = "/StrikeOut";
const char* const nmCircle = "/Circle";
const char* const nmSquare = "/Square";
const char* const nmLine = "/Line";
const char* const nmStamp = "/Stamp";
const char* const nmMovie = "/Movie";
const char* const nmSound = "/Sound";
const char* const nmText = "/Text";
const char* const nmLink = "/Link";
const char* const nmNamed = "/Named";
const char* const nmHide = "/Hide";
const char* const nmThread = "/Thread";
const char* const nmLaunch = "/Launch";
const char* const nmGoToE = "/GoToE";
const char* const nmGoToR = "/GoToR";
const char* const nmGoTo = "/GoTo";
const char* const nmFitBV = "/FitBV";
const char* const nmFitBH = "/FitBH";
const char* const nmFitB = "/FitB";
const char* const nmFitR = "/FitR";
const char* const nmFitV = "/FitV";
const char* const nmFitH = "/FitH";
const char* const nmFit = "/Fit";
const char* const nmXYZ = "/XYZ";
const char* const nmWidths = "/Widths";
const char* const nmFont = "/Font";
const char* const nmOutputIntents = "/OutputIntents";
const char* const nmLang = "/Lang";
const char* const nmMarkInfo = "/MarkInfo";
const char* const nmVersion = "/Version";
const char* const nmSeparationInfo = "/SeparationInfo";
const char* const nmPZ = "/PZ";
const char* const nmStructParents = "/StructParents";
const char* const nmPieceInfo = "/PieceInfo";
const char* const nmMetadata = "/Metadata";
const char* const nmFS = "/FS";
const char* const nmIX = "/IX";
const char* const nmRI = "/RI";
const char* const nmAA = "/AA";
const char* const nmBBox = "/BBox";
const char* const nmRD = "/RD";
const char* const nmCL = "/CL";
const char* const nmInkList = "/InkList";
const char* const nmVertices = "/Vertices";
const char* const nmQuadPoints = "/QuadPoints";
const char* const nmL = "/L";
const char* const nmMatrix = "/Matrix";
const char* const nmRect = "/Rect";
const char* const nmAIS = "/AIS";
const char* const nm3DV = "/3DV";
const char* const nm3DA = "/3DA";
const char* const nmMK = "/MK";
const char* const nmAnnots = "/Annots";
const char* const nmTrans = "/Trans";
const char* const nmDur = "/Dur";
const char* const nmB = "/B";
const char* const nmThumb = "/Thumb";
const char* const nmGroup = "/Group";
const char* const nmRotate = "/Rotate";
const char* const nmContents = "/Contents";
const char* const nmBoxColorInfo = "/BoxColorInfo";
const char* const nmArtBox = "/ArtBox";
const char* const nmTrimBox = "/TrimBox";
const char* const nmBleedBox = "/BleedBox";
const char* const nmCropBox = "/CropBox";
const char* const nmMediaBox = "/MediaBox";
const char* const nmResources = "/Resources";
const char* const nmLastModified = "/LastModified";
const char* const nmCount = "/Count";
const char* const nmKids = "/Kids";
const char* const nmParent = "/Parent";
const char* const nmPage = "/Page";
const char* const nmURLS = "/URLS";
const char* const nmIDS = "/IDS";
const char* const nmLimits = "/Limits";
const char* const nmA = "/A";
const char* const nmDest = "/Dest";
const char* const nmNext = "/Next";
const char* const nmLast = "/Last";
const char* const nmSpiderInfo = "/SpiderInfo";
const char* const nmStructTreeRoot = "/StructTreeRoot";
const char* const nmJavaScript = "/JaveScript";
const char* const nmPageLayout = "/PageLayout";
const char* const nmPageLabels = "/PageLabels";
const char* const nmViewerPreferences = "/ViewerPreferences";
const char* const nmURI = "/URI";
const char* const nmPageMode = "/PageMode";
const char* const nmOpenAction = "/OpenAction";
const char* const nmNames = "/Names";
const char* const nmAcroForm = "/AcroForm";
const char* const nmThreads = "/Threads";
const char* const nmPages = "/Pages";
const char* const nmDests = "/Dests";
const char* const nmCatalog = "/Catalog";
const char* const nmSubtype = "/Subtype";
const char* const nmType = "/Type";
const char* const nmCreationDate = "/CreationDate";
const char* const nmModDate = "/ModDate";
const char* const nmProducer = "/Producer";
const char* const nmCreator = "/Creator";
const char* const nmKeywords = "/Keywords";
const char* const nmSubject = "/Subject";
const char* const nmAuthor = "/Author";
const char* const nmTitle = "/Title";
const char* const nmTrapped = "/Trapped";
const char* const nmStrF = "/StrF";
const char* const nmStmF = "/StmF";
const char* const nmDocOpen = "/DocOpen";
const char* const nmAuthEvent = "/AuthEvent";
const char* const nmAESV3 = "/AESV3";
const char* const nmAESV2 = "/AESV2";
const char* const nmV2 = "/V2";
const char* const nmCFM = "/CFM";
const char* const nmEncryptMetadata = "/EncryptMetadata";
const char* const nmDecodeParms = "/DecodeParms";
const char* const nmXRef = "/XRef";
const char* const nmEncrypt = "/Encrypt";
const char* const nmID = "/ID";
const char* const nmInfo = "/Info";
const char* const nmRoot = "/Root";
const char* const nmPrev = "/Prev";
const char* const nmSize = "/Size";
const char* const nmIndex = "/Index";
const char* const nmW = "/W";

const char* const nameTable[256] = {
    nmSD, nmPg, nmK, nmGoToDp,
    nmDp, nmEnd, nmStart, nmDParts,
    nmDPartRootNode, nmDPartRoot, nmBaseState, nmON,
    nmOFF, nmOrder, nmOCGs, nmOCProperties,
    nmTf, nmIllustrator, nmPrivate, nmColorSpace,
    nmBitsPerComponent, nmHeight, nmWidth, nmImage,
    nmXObject, nmDCT, nmCCF, nmRL,
    nmA85, nmAHx, nmLZW, nmFl,
    nmDCTDecode, nmCCITTFaxDecode, nmRunLengthDecode, nmASCII85Decode,
    nmASCIIHexDecode, nmLZWDecode, nmFlateDecode, nmH,
    nmDS, nmRC, nmTU, nmDV,
    nmMaxLen, nmTx, nmT, nmFf,
    nmFT, nmQ, nmDA, nmDR,
    nmCO, nmSigFlags, nmNeedAppearances, nmFields,
    nmI, nmGlitter, nmDissolve, nmWipe,
    nmBox, nmBlinds, nmSplit, nmS,
    nmM, nmDm, nmDi, nmD,
    nmR2L, nmL2R, nmTwoColumnRight, nmTwoColumnLeft,
    nmOneColumn, nmFullScreen, nmUseThumbs, nmUseOutlines,
    nmUseNone, nmPrintClip, nmPrintArea, nmViewClip,
    nmViewArea, nmDirection, nmNonFullScreenPageMode, nmDisplayDocTitle,
    nmCenterWindow, nmFitWindow, nmHideWindowUI, nmHideMenubar,
    nmHideToolbar, nmAdbepkcs7s5, nmAdbepkcs7s4, nmAdbepkcs7s3,
    nmStdCF, nmCF, nmV, nmUE,
    nmU, nmR, nmPerms, nmP,
    nmOE, nmO, nmPubSec, nmPPKLite,
    nmPPKEF, nmStandard, nmN, nmFirst,
    nmObjStm, nmSubFilter, nmFilter, nmFFilter,
    nmFDecodeParms, nmF, nmLength, nmWidget,
    nmRichMedia, nm3D, nmWaterMark, nmTrapNet,
    nmPrinterMark, nmScreen, nmCaret, nmPolygon,
    nmPolyLine, nmSquiggly, nmPopup, nmFreeText,
    nmFileAttachment, nmInk, nmUnderline, nmHighlight,
    nmStrikeOut, nmCircle, nmSquare, nmLine,
    nmStamp, nmMovie, nmSound, nmText,
    nmLink, nmNamed, nmHide, nmThread,
    nmLaunch, nmGoToE, nmGoToR, nmGoTo,
    nmFitBV, nmFitBH, nmFitB, nmFitR,
    nmFitV, nmFitH, nmFit, nmXYZ,
    nmWidths, nmFont, nmOutputIntents, nmLang,
    nmMarkInfo, nmVersion, nmSeparationInfo, nmPZ,
    nmStructParents, nmPieceInfo, nmMetadata, nmFS,
    nmIX, nmRI, nmAA, nmBBox,
    nmRD, nmCL, nmInkList, nmVertices,
    nmQuadPoints, nmL, nmMatrix, nmRect,
    nmAIS, nm3DV, nm3DA, nmMK,
    nmAnnots, nmTrans, nmDur, nmB,
    nmThumb, nmGroup, nmRotate, nmContents,
    nmBoxColorInfo, nmArtBox, nmTrimBox, nmBleedBox,
    nmCropBox, nmMediaBox, nmResources, nmLastModified,
    nmCount, nmKids, nmParent, nmPage,
    nmURLS, nmIDS, nmLimits, nmA,
    nmDest, nmNext, nmLast, nmSpiderInfo,
    nmStructTreeRoot, nmJavaScript, nmPageLayout, nmPageLabels,
    nmViewerPreferences, nmURI, nmPageMode, nmOpenAction,
    nmNames, nmAcroForm, nmThreads, nmPages,
    nmDests, nmCatalog, nmSubtype, nmType,
    nmCreationDate, nmModDate, nmProducer, nmCreator,
    nmKeywords, nmSubject, nmAuthor, nmTitle,
    nmTrapped, nmStrF, nmStmF, nmDocOpen,
    nmAuthEvent, nmAESV3, nmAESV2, nmV2,
    nmCFM, nmEncryptMetadata, nmDecodeParms, nmXRef,
    nmEncrypt, nmID, nmInfo, nmRoot,
    nmPrev, nmSize, nmIndex, nmW,
};

}  // namespace PDF_KILN
