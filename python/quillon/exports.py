"""What each function of the C library is called in Python."""

from . import _quillon

# Functions that objects call. Those that operations of the table call are known from there.
_OF_OBJECTS = {
    # colour spaces
    "IxCreateCToHSI": "hsi_tables",
    "IxCreateCToLab": "lab_tables",
    "IxGetHSIPoint": "get_hsi_point",
    "IxGetCIELabPoint": "get_lab_point",
    # regions of interest
    "CreateRLERegion": "Region",
    "DestroyRLERegion": "Region.close",
    "IxPointToRegion": "Region.set_polygon",
    "IxImgAssignToRegion": "Region.assign_image",
    "IxGetRegDisplay": "Region.display",
    # blobs
    "IxGrayBlobLabel": "Region.label",
    "IxBinaryFillUp": "Region.fill_up",
    "IxGetBlobCount": "Region.blob_count",
    "IxGetnBlobArea": "Region.blob_area",
    "IxGetnBlobCenter": "Region.blob_center",
    "IxGetnBlobBound": "Region.blob_bound",
    "IxGetBlobMinRect": "Region.blob_min_rect",
    "IxGetnBlobGrayMean": "Region.blob_gray_mean",
    "IxGetnBlobColorMean": "Region.blob_color_mean",
    "IxGetnRegionGrayMean": "Region.gray_mean",
    "IxGetnRegionColorMean": "Region.color_mean",
    # selecting blobs
    "IxComputeAllBlobFeature": "Region.compute_features",
    "IxSelectBlobArea": "Region.select_area",
    "IxSelectBlobWidth": "Region.select_width",
    "IxSelectBlobHeight": "Region.select_height",
    "IxLocateBlobCenter": "Region.select_center",
    "IxReSelectBlob": "Region.reselect",
    "IxGetSelectBlobCount": "Region.selected_count",
    "IxGetBlobList": "Region.selected_blobs",
    # template matching
    "IxCreateNCCTool": "NccTool",
    "IxDestroyNCCModel": "NccTool.close",
    "IxCreateNCCMatchModel": "NccTool.teach",
    "IxCreateNCCMatchColorModel": "NccTool.teach",
    "IxGet_DefaultPyramidLevel": "NccTool.default_level",
    "IxGet_CurrentPyramidLevel": "NccTool.current_level",
    "IxSetPyramidLevel": "NccTool.current_level",
    "IxGet_Pyramid_GrayImage": "NccTool.level_image",
    "IxGet_Pyramid_ColorImage": "NccTool.level_image",
    "IxFindNCCMatchModel": "NccTool.find",
    "IxFindNCCMatchColorModel": "NccTool.find",
    "IxGetNCCMatchResults": "NccTool.results",
    "IxCreateNCCMatchColorModel_ROI": "NccTool.teach_roi",
    "IxFindNCCMatchColorModel_ROI": "NccTool.correlate",
    # edge-based matching
    "IxCreateGeoTool": "GeoMatchTool",
    "IxDestroyMatchModel": "GeoMatchTool.close",
    "IxCreateGeoMatchModel": "GeoMatchTool.teach",
    "IxFindGeoMatchModel": "GeoMatchTool.find",
    # calibration
    "IxFFCParaBuild": "FlatField.build",
    "IxFFCParaLoad": "FlatField.load",
    "IxFFCCalibrate": "FlatField.calibrate",
    "IxDistortionParaBuild": "LensCalibration.build",
    "IxDistortionParaLoad": "LensCalibration.load",
    "IxDistortionPreCalculate": "LensCalibration.precalculate",
    "IxDistortionCalibrate": "LensCalibration.calibrate",
}

EXPORTS = {**_quillon.EXPORTS, **_OF_OBJECTS}
